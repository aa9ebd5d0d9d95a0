#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Tarnwick/Platform/Data.hpp"

namespace tarnwick::benchmarks {

inline sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

inline std::uint16_t portOf(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) == -1) return 0;
  return address.sin_family == AF_INET ? ntohs(address.sin_port) : 0;
}

/// A plain receiving socket on a port that the kernel chooses.
class Listener {
 public:
  Listener() : socket_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    const sockaddr_in any = loopback(0);
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&any), sizeof any) == -1) {
      throw std::system_error(errno, std::generic_category(), "bind");
    }
  }
  ~Listener() { close(socket_); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  [[nodiscard]] int socket() const { return socket_; }
  [[nodiscard]] std::uint16_t port() const { return portOf(socket_); }
  void setNonBlocking() const { fcntl(socket_, F_SETFL, O_NONBLOCK); }

  /// Receives the next datagram. Returns its length, or -1 if there is none.
  ssize_t receive(Data& buffer) {
    length_ = sizeof sender_;
    return recvfrom(socket_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&sender_),
                    &length_);
  }
  /// Sends a reply to the sender of the last datagram.
  void answer(const Data& data) const {
    sendto(socket_, data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&sender_),
           length_);
  }

 private:
  const int socket_;
  sockaddr_in sender_{};
  socklen_t length_ = 0;
};

inline std::uint16_t freePort() { return Listener().port(); }

/// A plain socket that sends datagrams to a port of this machine.
class Talker {
 public:
  explicit Talker(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_DGRAM, 0)), port_(port) {}
  ~Talker() { close(socket_); }
  Talker(const Talker&) = delete;
  Talker& operator=(const Talker&) = delete;

  void say(const Data& data) const {
    const sockaddr_in address = loopback(port_);
    sendto(socket_, data.data(), data.size(), 0, reinterpret_cast<const sockaddr*>(&address),
           sizeof address);
  }

  /// Polls without pause until a reply arrives.
  void awaitAnswer() const {
    std::uint8_t byte = 0;
    while (recv(socket_, &byte, sizeof byte, MSG_DONTWAIT) == -1) continue;
  }

 private:
  const int socket_;
  const std::uint16_t port_;
};

}  // namespace tarnwick::benchmarks
