#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/NSImage.hpp"
#include "Tarnwick/Platform/NSOperationQueue.hpp"
#include "Tarnwick/RxImageFrame.hpp"
#include "Tarnwick/RxResponse.hpp"
#include "Tarnwick/UDPServer.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Receives the images of an image stream.
class RxImageUDPDelegate {
 public:
  virtual ~RxImageUDPDelegate() = default;

  /// Called with a complete, decoded image, which is never null and which the application owns.
  /// `bounds` is the rectangle that it covers, in pixels from the top left of the sender's screen;
  /// absent if it covers the whole screen. If the two sizes differ, scale the image to the bounds.
  /// An image smaller than bounds that begin at 0, 0 is a preview of the whole screen, which has
  /// the size of the bounds. A receiver that starts late gets regions first: do not wait for an
  /// image without bounds.
  ///
  /// Called on a thread of the receiver's operation queue, one call at a time, in the order in
  /// which the images became complete. The method may call endOperation(), but not
  /// beginOperation(), and drop the last reference to the receiver. While it runs, the receive
  /// thread goes on, and later images wait on the operation queue without limit. It must not throw:
  /// any exception ends the process. After endOperation() the image in progress on the operation
  /// queue can still be delivered, as can images that wait on the main queue.
  virtual void imageReceived(std::shared_ptr<NSImage> image, std::optional<CGRect> bounds) = 0;
};

/// Receives images of a peer's screen on a UDP port. The peer announces each image, of the whole
/// screen or of a rectangle, and sends its file; the delegate gets decoded images. The application
/// must drain DispatchQueue::main(), through which complete images reach the delegate. Any thread
/// may begin and end it. The receiver lives until the process ends.
///
/// The peer's messages, one per datagram (words in any case; "~" separates fields as "|" does):
///
///     pin|PIN                            reply "pin|ok" or "pin|rejected"; no other effect
///     starting                           discards the image in progress
///     size|SIZE                          SIZE bytes of JPEG or PNG follow: the whole screen
///     size|SIZE|LABEL|X|Y|WIDTH|HEIGHT   the same, a rectangle of it; the label is ignored
///     end                                discards the image in progress
class RxImageUDP final : public UDPServerDelegate, public std::enable_shared_from_this<RxImageUDP> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Creates a receiver bound to `port`. `name` labels the log lines. Datagrams longer than
  /// `bufferSize` bytes are truncated, and their objects are lost. Values above 65,500 are clamped
  /// to 65,500. Below 1, the first datagram stops the process. The receiver owns the delegate,
  /// which may be null, until the process ends. Throws the same UDPErrors as UDPServer::create().
  [[nodiscard]] static std::shared_ptr<RxImageUDP> create(
      std::string name, std::uint16_t port, std::int64_t bufferSize,
      std::shared_ptr<RxImageUDPDelegate> delegate);

  /// Closed to others: use create().
  RxImageUDP(Private, std::shared_ptr<RxImageUDPDelegate> delegate);
  ~RxImageUDP() override;
  RxImageUDP(const RxImageUDP&) = delete;
  RxImageUDP& operator=(const RxImageUDP&) = delete;

  /// Starts the receive thread. Throws UDPError::alreadyInProgress if it was started and not ended,
  /// and std::system_error or std::bad_alloc if it cannot be started. Do not restart a receiver
  /// after endOperation(): it receives nothing and occupies a processor. Create a new one.
  void beginOperation();

  /// Stops receiving and drops the images that wait on the operation queue. Those that wait on the
  /// main queue are still delivered. Returns at once. The receive thread frees the port after its
  /// current pass; a receiver that was never begun keeps its port.
  void endOperation();

  /// True from beginOperation() to endOperation(), whether or not data arrives.
  [[nodiscard]] bool isActive() const { return isActive_; }

  /// Returns the fields of a message, separated by "|" and "~", without the empty ones.
  [[nodiscard]] std::vector<std::string> splitMessage(std::string_view message) const;

  /// Returns whether `pin` is the pairing PIN, character for character. The PIN only decides the
  /// reply to the peer: images are received without it, too.
  [[nodiscard]] bool approveConnection(std::string_view pin) const;

  /// Classifies a datagram of an image stream. A text without any field is a fatal error.
  [[nodiscard]] static RxMessage classify(Data datagram);

  /// Handles the next queued datagram and returns the reply, if any. Called on the receive thread.
  /// If memory runs out, the datagram and the image in progress are dropped.
  [[nodiscard]] std::optional<Data> processMessageForResponse() override;

  /// Acts on a classified message and returns the reply, if any. Called on the receive thread. An
  /// image announcement is ignored if its size is not an integer or if any coordinate is not a
  /// number. A coordinate that does not fit an integer is a fatal error, as for makeCGRect().
  std::optional<Data> handleMessage(std::optional<Data> data,
                                    std::optional<std::vector<std::string>> params,
                                    RxResponse response);

 private:
  void appendChunk(Data chunk);
  void announceImage(const std::vector<std::string>& params);
  [[nodiscard]] Data answerPin(const std::optional<std::vector<std::string>>& params) const;
  void deliver(std::shared_ptr<RxImageFrame> frame);

  // Fixed after construction.
  NSOperationQueue operationQueue_;
  std::shared_ptr<UDPServer> server_;  // which owns this receiver: an intended reference cycle

  // Used by the receive thread only.
  std::shared_ptr<RxImageFrame> currentFrame_;

  const std::shared_ptr<RxImageUDPDelegate> delegate_;  // fixed after construction
  std::atomic<bool> isActive_ = false;
};

}  // namespace tarnwick
