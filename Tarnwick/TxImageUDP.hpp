#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/NSImage.hpp"
#include "Tarnwick/Platform/NSOperationQueue.hpp"
#include "Tarnwick/UDPClient.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Sends images of a screen to one peer over UDP/IPv4. Encodes the images one at a time, in the
/// order of the calls of send(), on a thread of its operation queue. Any thread may call any
/// member. The sender lives until the process ends.
///
/// An image whose file fits one datagram is sent at once. The rest of a longer file is sent only
/// while something is queued behind it: send another image, however small, after it. At most about
/// 1,000 datagrams are sent a second. The send queue holds 100 messages, two per image. The next
/// message empties a full queue, so pace the images.
class TxImageUDP final : public UDPClientDelegate {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Creates a sender to `serverIPAddress`, a text that inet_aton(3) accepts. `name` labels the log
  /// lines. Messages longer than `chunkSize` bytes, announcements included, are split into chunks.
  /// Values above 65,500 are clamped to 65,500. A short chunk of a file can read as text: below
  /// 1,400, images may be lost; below 100, hardly any image arrives; 1 or less can stop the peer's
  /// process. Throws the same UDPErrors as UDPClient::create().
  [[nodiscard]] static std::shared_ptr<TxImageUDP> create(std::string name,
                                                          const std::string& serverIPAddress,
                                                          std::uint16_t serverPort,
                                                          std::int64_t chunkSize);

  /// Closed to others: use create().
  explicit TxImageUDP(Private);
  TxImageUDP(const TxImageUDP&) = delete;
  TxImageUDP& operator=(const TxImageUDP&) = delete;

  /// Starts the send thread, sends "starting" and waits up to one second for a reply. The reply has
  /// no effect, and RxImageUDP sends none. Throws UDPError::alreadyInProgress if it was started and
  /// not ended, and std::system_error or std::bad_alloc if it cannot be started. Do not restart a
  /// sender after endOperation(): it sends nothing. Create a new one.
  void beginOperation();

  /// Ends the stream and returns after two seconds. Cancels the images that wait to be encoded.
  /// After one second, drops the queued messages, but not the rest of the current one, and queues
  /// "End". After another second, ends the send thread.
  void endOperation();

  /// True from beginOperation() to endOperation(), whether or not a peer receives.
  [[nodiscard]] bool isActive() const { return isActive_; }

  /// Sets what isActive() returns; starts or stops nothing.
  void setIsActive(bool isActive) { isActive_ = isActive; }

  /// Queues an image and returns at once, also before beginOperation(). `rect` is the area of the
  /// screen that it shows, in pixels from the top left; it is not sent if `fullScreen` is true.
  /// `frame` is a number for the log. `compression` runs from 0.0, the smallest file, to 1.0, the
  /// best picture. The image must not change after the call. An image that is null or has no
  /// bitmap, or a rectangle to be sent that does not fit integers, is a fatal error on the encoding
  /// thread. Images with a side over 65,500 pixels are silently dropped. Receivers drop images of
  /// more than 128,000,000 pixels. Nothing is sent after endOperation(). Throws std::bad_alloc,
  /// with nothing queued, if memory runs out. If memory runs out later, the image is dropped.
  void send(std::shared_ptr<NSImage> image, const CGRect& rect, std::uint64_t frame,
            bool fullScreen, float compression);

  /// Logs the peer's reply if it is valid UTF-8. Called on the send thread.
  void receivedResponse(const Data& data) override;

 private:
  NSOperationQueue operationQueue_;    // fixed after construction
  std::shared_ptr<UDPClient> client_;  // which owns this sender: an intended reference cycle
  std::atomic<bool> isActive_ = false;
};

}  // namespace tarnwick
