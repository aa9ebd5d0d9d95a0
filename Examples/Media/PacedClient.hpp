#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace media {

/// Distinguishes messages from payload: RxVideoUDP::classify or RxAudioUDP::classify.
using Classifier = tarnwick::RxMessage (*)(tarnwick::Data datagram);

/// Sends to one receiver no faster than a UDPClient sends its messages. So only a few wait in its
/// queue, which is emptied when it exceeds 100 messages. For one thread.
class PacedClient {
 public:
  /// Starts a client that sends to the receiver at `address`. Throws Trouble.
  PacedClient(const std::string& address, std::uint16_t port);

  /// Ends the client and drops unsent messages.
  ~PacedClient();
  PacedClient(const PacedClient&) = delete;
  PacedClient& operator=(const PacedClient&) = delete;

  /// Queues a message, and returns when the next one may follow.
  void send(std::string_view message);

  /// Sends the bytes of an announced object in chunks of `chunk` bytes. A chunk that would read as
  /// a message is shortened. A chunk that would be separators alone is extended. Throws Trouble if
  /// it would need more than 65,500 bytes, or if the whole payload is separators.
  void sendPayload(std::string_view payload, std::size_t chunk, Classifier classify);

  /// Sends a message after all others and waits up to one second for the reply.
  [[nodiscard]] std::optional<std::string> ask(std::string_view message);

  /// Waits for as long as the client needs to send a full queue.
  void finish();

 private:
  std::shared_ptr<tarnwick::UDPClient> client_;
};

}  // namespace media
