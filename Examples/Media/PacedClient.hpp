#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace media {

/// How a receiver tells messages from payload: RxVideoUDP::classify or RxAudioUDP::classify.
using Classifier = tarnwick::RxMessage (*)(tarnwick::Data datagram);

/// Sends to one receiver at the pace at which a UDPClient's messages leave, so that no more than a
/// few ever wait in its queue, which would empty itself at a hundred. Used by one thread.
class PacedClient {
 public:
  /// Opens the way to a receiver. Throws Trouble.
  PacedClient(const std::string& address, std::uint16_t port);

  /// Drops what has not left.
  ~PacedClient();
  PacedClient(const PacedClient&) = delete;
  PacedClient& operator=(const PacedClient&) = delete;

  /// Sends a message, and returns when the next one may follow.
  void send(std::string_view message);

  /// Sends the bytes of an object that was announced, in pieces of `chunk` bytes where none of them
  /// reads as a message, and otherwise a little shorter or, with many separators in a row, longer.
  /// Throws Trouble when there are more in a row than a datagram holds.
  void sendPayload(std::string_view payload, std::size_t chunk, Classifier classify);

  /// Sends a message when all others have left, and waits up to a second for the answer.
  [[nodiscard]] std::optional<std::string> ask(std::string_view message);

  /// Waits until every message has left.
  void finish();

 private:
  std::shared_ptr<tarnwick::UDPClient> client_;
};

}  // namespace media
