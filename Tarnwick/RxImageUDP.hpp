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

/// What an application is told of an image stream. The call may not throw.
class RxImageUDPDelegate {
 public:
  virtual ~RxImageUDPDelegate() = default;

  /// An image is complete and decoded. It is never null and belongs to the application. `bounds` is
  /// the rectangle that it covers, in pixels of the sender's screen from its top left, or absent
  /// when it is the whole screen. An image may have another size than its bounds: scale it into
  /// them. If it is smaller than bounds that begin at 0, 0, it is a preview of the whole screen,
  /// which has the size of the bounds. A receiver that starts late gets regions first: do not wait
  /// for an image without bounds.
  ///
  /// Called on a thread of the receiver's operation queue, one call at a time, in the order in
  /// which the images became complete. Images that are complete by then may still come after
  /// endOperation().
  virtual void imageReceived(std::shared_ptr<NSImage> image, std::optional<CGRect> bounds) = 0;
};

/// Receives images of a peer's screen on a UDP port: the peer announces each one, the whole screen
/// or a rectangle of it, and sends its file, and the delegate is given decoded images. Somebody
/// must drain DispatchQueue::main(), over which completed images are handed on. Any thread may
/// begin and end it; it lives until the process ends.
///
/// The peer says, each in a datagram of its own (words in any case, "~" as good as "|"):
///
///     pin|PIN                            answered "pin|ok" or "pin|rejected", and nothing more
///     starting                           drops the image in progress
///     size|SIZE                          a whole screen: then SIZE bytes of JPEG or PNG follow
///     size|SIZE|LABEL|X|Y|WIDTH|HEIGHT   a rectangle of it likewise; the label is not read
///     end                                drops the image in progress
class RxImageUDP final : public UDPServerDelegate, public std::enable_shared_from_this<RxImageUDP> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Binds `port`. `name` labels the log lines; `bufferSize` is the longest datagram in bytes, to
  /// which longer ones are cut, so that their objects are lost: more than 65500 counts as that, and
  /// with less than 1 the first datagram stops the process. The delegate, null for none, is held
  /// strongly, and for ever. Throws UDPError as UDPServer::create().
  [[nodiscard]] static std::shared_ptr<RxImageUDP> create(
      std::string name, std::uint16_t port, std::int64_t bufferSize,
      std::shared_ptr<RxImageUDPDelegate> delegate);

  /// Closed to others, who call create().
  RxImageUDP(Private, std::shared_ptr<RxImageUDPDelegate> delegate);
  ~RxImageUDP() override;
  RxImageUDP(const RxImageUDP&) = delete;
  RxImageUDP& operator=(const RxImageUDP&) = delete;

  /// Starts receiving. Throws UDPError::alreadyInProgress while it does, and std::system_error when
  /// no thread can be started. A receiver that was ended may be begun again, but hears nothing any
  /// more, and its thread uses a processor for nothing: create a new one.
  void beginOperation();

  /// Stops receiving, and drops the images that wait on the operation queue; those that wait on
  /// the main queue still come. Returns at once; the port is free a moment later, and never if the
  /// receiver was not begun.
  void endOperation();

  /// Whether the receiver was begun and not ended; no sign that anything arrives.
  [[nodiscard]] bool isActive() const { return isActive_; }

  /// The fields of a message between "|" and "~", without the empty ones.
  [[nodiscard]] std::vector<std::string> splitMessage(std::string_view message) const;

  /// Whether `pin` is the pairing PIN, character for character. The PIN is an answer to the peer
  /// and nothing more: images are received whether or not it was ever offered.
  [[nodiscard]] bool approveConnection(std::string_view pin) const;

  /// What a datagram is in an image stream. A text without any field is a fatal error.
  [[nodiscard]] static RxMessage classify(Data datagram);

  /// Handles the endpoint's next datagram and returns the reply. Called on the receive thread. When
  /// memory runs out, the datagram and the image in progress are dropped.
  [[nodiscard]] std::optional<Data> processMessageForResponse() override;

  /// Acts on a classified message and returns the reply. Called on the receive thread. An
  /// announcement whose size is not an integer, or whose rectangle is not four numbers, is ignored;
  /// a coordinate that does not fit an integer is a fatal error, as for makeCGRect().
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
  std::shared_ptr<UDPServer> server_;  // and it owns us: the two keep each other alive, on purpose

  // Used by the receive thread only.
  std::shared_ptr<RxImageFrame> currentFrame_;

  const std::shared_ptr<RxImageUDPDelegate> delegate_;  // fixed after construction
  std::atomic<bool> isActive_ = false;
};

}  // namespace tarnwick
