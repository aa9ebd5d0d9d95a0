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

/// Receives the start, the stop and the frames of a video stream.
class RxVideoUDPDelegate {
 public:
  virtual ~RxVideoUDPDelegate() = default;

  /// Called when the peer sent "start". Not ordered relative to frames, which are delivered on
  /// another thread, possibly at the same time.
  ///
  /// Called on the receive thread, one call at a time. The method may call endOperation(), but not
  /// beginOperation(), and drop the last reference to the receiver. Until it returns, the thread
  /// neither reads a datagram nor sends the reply, and datagrams that the system's receive buffer
  /// cannot hold are lost. It must not throw: std::bad_alloc loses the reply and the frame in
  /// progress, and any other exception ends the process. After endOperation() at most one more call
  /// can follow, from the pass in progress. Threads that it starts inherit the priority of the
  /// receive thread and, on Linux, its timer slack.
  virtual void videoStarted() = 0;

  /// Called on the receive thread when the peer sent "stop". The rules of videoStarted() apply.
  virtual void videoStopped() = 0;

  /// Called with the bytes of a complete frame, which the application owns. `frameID` is the number
  /// that the peer gave the frame.
  ///
  /// Called on a thread of the receiver's operation queue, one call at a time, in the order in
  /// which the frames became complete. The method may call endOperation(), but not
  /// beginOperation(), and drop the last reference to the receiver. While it runs, the receive
  /// thread goes on, and later frames wait on the operation queue without limit. It must not throw:
  /// any exception ends the process. After endOperation() the frame in progress on the operation
  /// queue can still be delivered, as can frames that wait on the main queue.
  virtual void videoFrameReceived(std::int64_t frameID, Data data) = 0;
};

/// Receives a video stream on a UDP port. The peer announces each frame and sends its bytes; the
/// delegate gets complete frames. The application must drain DispatchQueue::main(), through which
/// complete frames reach the delegate. Any thread may begin and end it. The receiver lives until
/// the process ends.
///
/// The peer's messages, one per datagram (words in any case; "~" separates fields as "|" does):
///
///     start                          reply "video|started"; discards the frame in progress
///     videoframe|NUMBER|LABEL|SIZE   SIZE bytes follow in datagrams; the label is ignored
///     stop                           reply "video|stopped"; keeps the frame in progress
class RxVideoUDP final : public UDPServerDelegate, public std::enable_shared_from_this<RxVideoUDP> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Creates a receiver bound to `port`. `name` labels the log lines. Datagrams longer than
  /// `bufferSize` bytes are truncated, and their objects are lost. Values above 65,500 are clamped
  /// to 65,500. Below 1, the first datagram stops the process. The receiver owns the delegate,
  /// which may be null, until the process ends. Throws the same UDPErrors as UDPServer::create().
  [[nodiscard]] static std::shared_ptr<RxVideoUDP> create(
      std::string name, std::uint16_t port, std::int64_t bufferSize,
      std::shared_ptr<RxVideoUDPDelegate> delegate);

  /// Closed to others: use create().
  RxVideoUDP(Private, std::shared_ptr<RxVideoUDPDelegate> delegate);
  ~RxVideoUDP() override;
  RxVideoUDP(const RxVideoUDP&) = delete;
  RxVideoUDP& operator=(const RxVideoUDP&) = delete;

  /// Starts the receive thread. Throws UDPError::alreadyInProgress if it was started and not ended,
  /// and std::system_error or std::bad_alloc if it cannot be started. Do not restart a receiver
  /// after endOperation(): it receives nothing and occupies a processor. Create a new one.
  void beginOperation();

  /// Stops receiving and drops the frames that wait on the operation queue. Those that wait on the
  /// main queue are still delivered. Returns at once. The receive thread frees the port after its
  /// current pass; a receiver that was never begun keeps its port.
  void endOperation();

  /// True from beginOperation() to endOperation(), whether or not data arrives.
  [[nodiscard]] bool isActive() const { return isActive_; }

  /// Returns the fields of a message, separated by "|" and "~", without the empty ones.
  [[nodiscard]] std::vector<std::string> splitMessage(std::string_view message) const;

  /// Classifies a datagram of a video stream. A text of fewer than 200 bytes without any field is a
  /// fatal error.
  [[nodiscard]] static RxMessage classify(Data datagram);

  /// Handles the next queued datagram and returns the reply, if any. Called on the receive thread.
  /// If memory runs out, the datagram and the frame in progress are dropped.
  [[nodiscard]] std::optional<Data> processMessageForResponse() override;

  /// Acts on a classified message and returns the reply, if any. Called on the receive thread. A
  /// frame announcement with too few parameters or with a non-integer is a fatal error.
  std::optional<Data> handleMessage(std::optional<Data> data,
                                    std::optional<std::vector<std::string>> params,
                                    RxResponse response);

 private:
  void appendChunk(Data chunk);
  void announceFrame(const std::vector<std::string>& params);
  void deliver(std::shared_ptr<RxVideoFrame> frame);

  // Fixed after construction.
  NSOperationQueue operationQueue_;
  std::shared_ptr<UDPServer> server_;  // which owns this receiver: an intended reference cycle

  // Used by the receive thread only.
  std::shared_ptr<RxVideoFrame> currentFrame_;

  const std::shared_ptr<RxVideoUDPDelegate> delegate_;  // fixed after construction
  std::atomic<std::int64_t> frameID_ = 0;  // reset by beginOperation(); nothing reads it yet
  std::atomic<bool> isActive_ = false;
};

}  // namespace tarnwick
