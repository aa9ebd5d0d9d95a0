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

/// Sends images of a screen to one peer over UDP/IPv4. Images are encoded one at a time on a thread
/// of the sender's own, in the order in which they were given. Any thread may call any member. It
/// lives until the process ends.
///
/// An image leaves at once when its file fits one datagram. The rest of a larger one leaves while
/// something is queued behind it: send another image, however small, after it. At most about a
/// thousand datagrams leave a second. The queue holds 100 messages, two an image, and the next one
/// empties it: so send no faster.
class TxImageUDP final : public UDPClientDelegate {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Aims at a peer, whose address is text as inet_aton(3) takes it. `name` labels the log lines,
  /// `chunkSize` is the longest datagram in bytes: more than 65500 counts as that. Announcements
  /// are cut to it, too, and short pieces of a file may read as text: below 1400 images may be
  /// lost, below 100 hardly one arrives, and 1 or less can stop the peer. Throws UDPError as
  /// UDPClient::create().
  [[nodiscard]] static std::shared_ptr<TxImageUDP> create(std::string name,
                                                          const std::string& serverIPAddress,
                                                          std::uint16_t serverPort,
                                                          std::int64_t chunkSize);

  /// Closed to others, who call create().
  explicit TxImageUDP(Private);
  TxImageUDP(const TxImageUDP&) = delete;
  TxImageUDP& operator=(const TxImageUDP&) = delete;

  /// Starts sending, says "starting" to the peer and waits up to one second for an answer, which
  /// changes nothing and which an image receiver does not give. Throws UDPError::alreadyInProgress
  /// while it sends, and std::system_error when no thread can be started. A sender that was ended
  /// may be begun again, but sends nothing any more: create a new one.
  void beginOperation();

  /// Cancels the images that wait to be encoded; drops, after one second, what has not begun to
  /// leave; says "End" to the peer and stops after another second. Returns then; do not call it
  /// from receivedResponse().
  void endOperation();

  /// Whether the stream was begun and not ended; no sign that anybody listens.
  [[nodiscard]] bool isActive() const { return isActive_; }

  /// Changes what isActive() says, and starts or stops nothing.
  void setIsActive(bool isActive) { isActive_ = isActive; }

  /// Queues an image and returns at once, also before beginOperation(). `rect` is what it shows of
  /// the screen, in pixels from the top left, and is not sent when it shows the whole
  /// (`fullScreen`); `frame` is the caller's number for the log; `compression` runs from 0.0, the
  /// smallest file, to 1.0, the best picture. Nobody may change the image from now on. A null image
  /// or one without a bitmap stops the process, on the sender's thread, as does a rectangle to be
  /// sent that does not fit integers. One with a side over 65,500 pixels is not sent, and one of
  /// more than 128,000,000 pixels no receiver takes, of which nobody is told; after endOperation()
  /// none leaves. Throws std::bad_alloc, with nothing queued, when memory runs out; when it runs
  /// out later, the image is dropped.
  void send(std::shared_ptr<NSImage> image, const CGRect& rect, std::uint64_t frame,
            bool fullScreen, float compression);

  /// Logs the peer's reply if it is text. Called on the send thread.
  void receivedResponse(const Data& data) override;

 private:
  NSOperationQueue operationQueue_;    // fixed after construction
  std::shared_ptr<UDPClient> client_;  // and it owns us: the two keep each other alive, on purpose
  std::atomic<bool> isActive_ = false;
};

}  // namespace tarnwick
