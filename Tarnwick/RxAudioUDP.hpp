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

/// What an application is told of an audio stream. The call may not throw.
class RxAudioUDPDelegate {
 public:
  virtual ~RxAudioUDPDelegate() = default;

  /// A recording is complete; its bytes are the application's, and `recorded` is the number that
  /// the peer gave it. Called on a thread of the receiver's operation queue, one call at a time, in
  /// the order in which the recordings became complete; recordings complete by then may still come
  /// after endOperation(). A recording with the number 0 never comes.
  virtual void audioReceived(std::int64_t recorded, Data data) = 0;
};

/// Receives audio recordings on a UDP port: the peer announces each one and sends its bytes, and
/// the delegate is given whole recordings. Somebody must drain DispatchQueue::main(), over which
/// completed recordings are handed on. Any thread may begin and end it; it lives until the process
/// ends.
///
/// The peer says, each in a datagram of its own (words in any case, "~" as good as "|"):
///
///     recorded|NUMBER|LABEL|SIZE   then SIZE bytes in datagrams; the label is not read
///     wave|V1|L1|V2|L2|V3          is ignored
class RxAudioUDP final : public UDPServerDelegate, public std::enable_shared_from_this<RxAudioUDP> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Binds `port`. `name` labels the log lines; `bufferSize` is the longest datagram in bytes, to
  /// which longer ones are cut, so that their objects are lost: more than 65500 counts as that, and
  /// with less than 1 the first datagram stops the process. The delegate, null for none, is held
  /// strongly, and for ever. Throws UDPError as UDPServer::create().
  [[nodiscard]] static std::shared_ptr<RxAudioUDP> create(
      std::string name, std::uint16_t port, std::int64_t bufferSize,
      std::shared_ptr<RxAudioUDPDelegate> delegate);

  /// Closed to others, who call create().
  RxAudioUDP(Private, std::shared_ptr<RxAudioUDPDelegate> delegate);
  ~RxAudioUDP() override;
  RxAudioUDP(const RxAudioUDP&) = delete;
  RxAudioUDP& operator=(const RxAudioUDP&) = delete;

  /// Starts receiving. Throws UDPError::alreadyInProgress while it does, and std::system_error when
  /// no thread can be started. A receiver that was ended may be begun again, but hears nothing any
  /// more, and its thread uses a processor for nothing: create a new one.
  void beginOperation();

  /// Stops receiving, and drops the recordings that wait on the operation queue; those that wait on
  /// the main queue still come. Returns at once; the port is free a moment later, and never if the
  /// receiver was not begun.
  void endOperation();

  /// Whether the receiver was begun and not ended; no sign that anything arrives.
  [[nodiscard]] bool isActive() const { return isActive_; }

  /// The fields of a message between "|" and "~", without the empty ones.
  [[nodiscard]] std::vector<std::string> splitMessage(std::string_view message) const;

  /// What a datagram is in an audio stream. A text without any field is a fatal error.
  [[nodiscard]] static RxMessage classify(Data datagram);

  /// Handles the endpoint's next datagram; never replies. Called on the receive thread. When memory
  /// runs out, the datagram and the recording in progress are dropped.
  [[nodiscard]] std::optional<Data> processMessageForResponse() override;

  /// Acts on a classified message; never replies. Called on the receive thread. A recording
  /// announced with too few parameters, or one that is no integer, is a fatal error.
  std::optional<Data> handleMessage(std::optional<Data> data,
                                    std::optional<std::vector<std::string>> params,
                                    RxResponse response);

 private:
  void appendChunk(Data chunk);
  void announceRecording(const std::vector<std::string>& params);
  void deliver(std::shared_ptr<RxAudioFrame> frame);

  // Fixed after construction.
  NSOperationQueue operationQueue_;
  std::shared_ptr<UDPServer> server_;  // and it owns us: the two keep each other alive, on purpose

  // Used by the receive thread only.
  std::shared_ptr<RxAudioFrame> currentFrame_;

  const std::shared_ptr<RxAudioUDPDelegate> delegate_;  // fixed after construction
  std::atomic<bool> isActive_ = false;
};

}  // namespace tarnwick
