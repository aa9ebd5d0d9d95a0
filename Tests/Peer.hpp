#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/UDPError.hpp"
#include "Tests/Mailbox.hpp"

namespace tarnwick::test {

/// The other machine: a socket on 127.0.0.1 at a port that the kernel handed out.
class Peer {
 public:
  /// Talks to `target`, or, when it is 0, to whoever spoke last.
  explicit Peer(std::uint16_t target = 0) : socket_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (bind(socket_, reinterpret_cast<sockaddr*>(&address), length) == -1) std::abort();
    getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    target_ = loopback(target);
  }
  ~Peer() { close(socket_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }

  /// The port that it talks to: that of whoever spoke last.
  [[nodiscard]] std::uint16_t target() const { return ntohs(target_.sin_port); }

  void say(std::string_view message) { sendBytes(bytes(message)); }

  void sendBytes(const Data& data) {
    sendto(socket_, data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&target_),
           sizeof target_);
  }

  /// The next datagram, waited for; absent when the deadline has passed.
  std::optional<Data> hear(std::chrono::milliseconds limit = deadline) {
    pollfd descriptor{socket_, POLLIN, 0};
    if (poll(&descriptor, 1, static_cast<int>(limit.count())) != 1) return std::nullopt;
    Data data(65536);
    socklen_t length = sizeof target_;
    const ssize_t count = recvfrom(socket_, data.data(), data.size(), 0,
                                   reinterpret_cast<sockaddr*>(&target_), &length);
    data.resize(static_cast<std::size_t>(count));
    return data;
  }

  /// The same as text, which reads better where it is compared.
  std::string hearText(std::chrono::milliseconds limit = deadline) {
    const std::optional<Data> data = hear(limit);
    return data ? std::string(characters(*data)) : "(nothing)";
  }

  /// Whether nothing comes in a time in which everything that is on its way has come.
  bool hearsNothing() { return !hear(std::chrono::milliseconds(100)); }

 private:
  static sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
  }

  int socket_;
  std::uint16_t port_ = 0;
  sockaddr_in target_{};
};

/// Whether nobody is bound to a port: the thread that closes an endpoint's socket has done so.
inline bool isPortFree(std::uint16_t port) {
  const int probe = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  const int result = bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
  close(probe);
  return result == 0;
}

/// What `create` makes on a port that was free a moment ago, and that port.
template <typename Create>
auto onFreePort(Create create) {
  for (;;) {
    const std::uint16_t port = Peer().port();
    try {
      return std::pair(create(port), port);
    } catch (const UDPError& error) {
      if (error != UDPError::bindSocket) throw;
    }
  }
}

}  // namespace tarnwick::test
