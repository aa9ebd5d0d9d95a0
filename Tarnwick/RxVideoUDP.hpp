#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/NSOperationQueue.hpp"
#include "Tarnwick/RxResponse.hpp"
#include "Tarnwick/RxVideoFrame.hpp"
#include "Tarnwick/UDPServer.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// What an application is told of a video stream. None of the calls may throw.
class RxVideoUDPDelegate {
 public:
  virtual ~RxVideoUDPDelegate() = default;

  /// The peer said "start". Called on the receive thread, which reads nothing before the call
  /// returns; one call that was under way may still come after endOperation(). Not in order with
  /// the frames, which take another road and may come at the same time. On Linux, a thread that the
  /// call starts inherits the nice value and the timer slack of the receive thread.
  virtual void videoStarted() = 0;

  /// The peer said "stop". Called on the receive thread, like videoStarted().
  virtual void videoStopped() = 0;

  /// A frame is complete; its bytes are the application's, and `frameID` is the number that the
  /// peer gave it. Called on a thread of the receiver's operation queue, one call at a time, in the
  /// order in which the frames became complete; frames complete by then may still come after
  /// endOperation().
  virtual void videoFrameReceived(std::int64_t frameID, Data data) = 0;
};

/// Receives a video stream on a UDP port: the peer announces each frame and sends its bytes, and
/// the delegate is given whole frames. Somebody must drain DispatchQueue::main(), over which
/// completed frames are handed on. Any thread may begin and end it; it lives until the process
/// ends.
///
/// The peer says, each in a datagram of its own (words in any case, "~" as good as "|"):
///
///     start                          answered "video|started"; drops the frame in progress
///     videoframe|NUMBER|LABEL|SIZE   then SIZE bytes in datagrams; the label is not read
///     stop                           answered "video|stopped"; the frame in progress goes on
class RxVideoUDP final : public UDPServerDelegate, public std::enable_shared_from_this<RxVideoUDP> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Binds `port`. `name` labels the log lines; `bufferSize` is the longest datagram in bytes, to
  /// which longer ones are cut, so that their objects are lost: more than 65500 counts as that, and
  /// with less than 1 the first datagram stops the process. The delegate, null for none, is held
  /// strongly, and for ever. Throws UDPError as UDPServer::create().
  [[nodiscard]] static std::shared_ptr<RxVideoUDP> create(
      std::string name, std::uint16_t port, std::int64_t bufferSize,
      std::shared_ptr<RxVideoUDPDelegate> delegate);

  /// Closed to others, who call create().
  RxVideoUDP(Private, std::shared_ptr<RxVideoUDPDelegate> delegate);
  ~RxVideoUDP() override;
  RxVideoUDP(const RxVideoUDP&) = delete;
  RxVideoUDP& operator=(const RxVideoUDP&) = delete;

  /// Starts receiving. Throws UDPError::alreadyInProgress while it does, and std::system_error when
  /// no thread can be started. A receiver that was ended may be begun again, but hears nothing any
  /// more, and its thread uses a processor for nothing: create a new one.
  void beginOperation();

  /// Stops receiving, and drops the frames that wait on the operation queue; those that wait on
  /// the main queue still come. Returns at once; the port is free a moment later, and never if the
  /// receiver was not begun.
  void endOperation();

  /// Whether the receiver was begun and not ended; no sign that anything arrives.
  [[nodiscard]] bool isActive() const { return isActive_; }

  /// The fields of a message between "|" and "~", without the empty ones.
  [[nodiscard]] std::vector<std::string> splitMessage(std::string_view message) const;

  /// What a datagram is in a video stream. A text of fewer than 200 bytes without any field is a
  /// fatal error.
  [[nodiscard]] static RxMessage classify(Data datagram);

  /// Handles the endpoint's next datagram and returns the reply. Called on the receive thread. When
  /// memory runs out, the datagram and the frame in progress are dropped.
  [[nodiscard]] std::optional<Data> processMessageForResponse() override;

  /// Acts on a classified message and returns the reply. Called on the receive thread. A frame
  /// announced with too few parameters, or one that is no integer, is a fatal error.
  std::optional<Data> handleMessage(std::optional<Data> data,
                                    std::optional<std::vector<std::string>> params,
                                    RxResponse response);

 private:
  void appendChunk(Data chunk);
  void announceFrame(const std::vector<std::string>& params);
  void deliver(std::shared_ptr<RxVideoFrame> frame);

  // Fixed after construction.
  NSOperationQueue operationQueue_;
  std::shared_ptr<UDPServer> server_;  // and it owns us: the two keep each other alive, on purpose

  // Used by the receive thread only.
  std::shared_ptr<RxVideoFrame> currentFrame_;

  const std::shared_ptr<RxVideoUDPDelegate> delegate_;  // fixed after construction
  std::atomic<std::int64_t> frameID_ = 0;  // reset by beginOperation(); nothing reads it yet
  std::atomic<bool> isActive_ = false;
};

}  // namespace tarnwick
