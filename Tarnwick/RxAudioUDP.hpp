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
#include "Tarnwick/RxAudioFrame.hpp"
#include "Tarnwick/RxResponse.hpp"
#include "Tarnwick/UDPServer.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Receives the recordings of an audio stream.
class RxAudioUDPDelegate {
 public:
  virtual ~RxAudioUDPDelegate() = default;

  /// Called with the bytes of a complete recording, which the application owns. `recorded` is the
  /// number that the peer gave the recording. Recordings with the number 0 are not delivered.
  ///
  /// Called on a thread of the receiver's operation queue, one call at a time, in the order in
  /// which the recordings became complete. The method may call endOperation(), but not
  /// beginOperation(), and drop the last reference to the receiver. While it runs, the receive
  /// thread goes on, and later recordings wait on the operation queue without limit. It must not
  /// throw: any exception ends the process. After endOperation() the recording in progress on the
  /// operation queue can still be delivered, as can recordings that wait on the main queue.
  virtual void audioReceived(std::int64_t recorded, Data data) = 0;
};

/// Receives audio recordings on a UDP port. The peer announces each recording and sends its bytes;
/// the delegate gets complete recordings. The application must drain DispatchQueue::main(), through
/// which complete recordings reach the delegate. Any thread may begin and end it. The receiver
/// lives until the process ends.
///
/// The peer's messages, one per datagram (words in any case; "~" separates fields as "|" does):
///
///     recorded|NUMBER|LABEL|SIZE   SIZE bytes follow in datagrams; the label is ignored
///     wave|V1|L1|V2|L2|V3          is ignored
class RxAudioUDP final : public UDPServerDelegate, public std::enable_shared_from_this<RxAudioUDP> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Creates a receiver bound to `port`. `name` labels the log lines. Datagrams longer than
  /// `bufferSize` bytes are truncated, and their objects are lost. Values above 65,500 are clamped
  /// to 65,500. Below 1, the first datagram stops the process. The receiver owns the delegate,
  /// which may be null, until the process ends. Throws the same UDPErrors as UDPServer::create().
  [[nodiscard]] static std::shared_ptr<RxAudioUDP> create(
      std::string name, std::uint16_t port, std::int64_t bufferSize,
      std::shared_ptr<RxAudioUDPDelegate> delegate);

  /// Closed to others: use create().
  RxAudioUDP(Private, std::shared_ptr<RxAudioUDPDelegate> delegate);
  ~RxAudioUDP() override;
  RxAudioUDP(const RxAudioUDP&) = delete;
  RxAudioUDP& operator=(const RxAudioUDP&) = delete;

  /// Starts the receive thread. Throws UDPError::alreadyInProgress if it was started and not ended,
  /// and std::system_error or std::bad_alloc if it cannot be started. Do not restart a receiver
  /// after endOperation(): it receives nothing and occupies a processor. Create a new one.
  void beginOperation();

  /// Stops receiving and drops the recordings that wait on the operation queue. Those that wait on
  /// the main queue are still delivered. Returns at once. The receive thread frees the port after
  /// its current pass; a receiver that was never begun keeps its port.
  void endOperation();

  /// True from beginOperation() to endOperation(), whether or not data arrives.
  [[nodiscard]] bool isActive() const { return isActive_; }

  /// Returns the fields of a message, separated by "|" and "~", without the empty ones.
  [[nodiscard]] std::vector<std::string> splitMessage(std::string_view message) const;

  /// Classifies a datagram of an audio stream. A text without any field is a fatal error.
  [[nodiscard]] static RxMessage classify(Data datagram);

  /// Handles the next queued datagram; never replies. Called on the receive thread. If memory runs
  /// out, the datagram and the recording in progress are dropped.
  [[nodiscard]] std::optional<Data> processMessageForResponse() override;

  /// Acts on a classified message; never replies. Called on the receive thread. A recording
  /// announcement with too few parameters or with a non-integer is a fatal error.
  std::optional<Data> handleMessage(std::optional<Data> data,
                                    std::optional<std::vector<std::string>> params,
                                    RxResponse response);

 private:
  void appendChunk(Data chunk);
  void announceRecording(const std::vector<std::string>& params);
  void deliver(std::shared_ptr<RxAudioFrame> frame);

  // Fixed after construction.
  NSOperationQueue operationQueue_;
  std::shared_ptr<UDPServer> server_;  // which owns this receiver: an intended reference cycle

  // Used by the receive thread only.
  std::shared_ptr<RxAudioFrame> currentFrame_;

  const std::shared_ptr<RxAudioUDPDelegate> delegate_;  // fixed after construction
  std::atomic<bool> isActive_ = false;
};

}  // namespace tarnwick
