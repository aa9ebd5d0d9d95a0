#pragma once

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Tarnwick.hpp"

namespace tarnwick::test {

/// Exceeds every wait of a passing test, even on a slow machine.
inline constexpr std::chrono::seconds deadline{20};

/// Passes items from one thread to another that waits for them.
template <typename Item>
class Mailbox {
 public:
  void put(Item item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    arrived_.notify_all();
  }

  /// Waits for the oldest item. Absent after `limit`.
  std::optional<Item> await(std::chrono::milliseconds limit = deadline) {
    std::unique_lock lock(mutex_);
    if (!arrived_.wait_for(lock, limit, [this] { return !items_.empty(); })) return std::nullopt;
    Item item = std::move(items_.front());
    items_.pop_front();
    return item;
  }

  bool isEmpty() {
    const std::lock_guard lock(mutex_);
    return items_.empty();
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Item> items_;
};

/// Polls until a condition holds. Returns false after the deadline.
template <typename Condition>
bool eventually(Condition holds) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/// Redirects standard output for its lifetime and collects its lines.
class Output {
 public:
  /// If `blocks` is set, nothing is read before beginReading(), and writers block.
  explicit Output(bool blocks = false) : standardOutput_(dup(STDOUT_FILENO)) {
    flushLog();
    std::fflush(stdout);
    int ends[2];
    if (pipe(ends) == -1) std::abort();
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    end_ = ends[0];
    if (!blocks) beginReading();
  }
  ~Output() {
    flushLog();
    std::fflush(stdout);
    dup2(standardOutput_, STDOUT_FILENO);  // closes the pipe, which ends the reader
    close(standardOutput_);
    reader_.join();
    // Print the collected lines: they include the test's own messages.
    while (const auto line = arriving_.await(std::chrono::milliseconds(0))) lines_.push_back(*line);
    for (const std::string& line : lines_) std::printf("%s\n", line.c_str());
  }

  void beginReading() {
    reader_ = std::thread([this] { read(end_); });
  }

  /// Waits for a line that equals `expected`. Returns false after the deadline.
  bool awaitLine(const std::string& expected) {
    while (auto line = arriving_.await()) {
      lines_.push_back(*line);
      if (*line == expected) return true;
    }
    return false;
  }

  /// The lines that awaitLine() has read.
  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }

 private:
  void read(int end) {
    std::FILE* stream = fdopen(end, "r");
    std::string line;
    for (int c; (c = std::getc(stream)) != EOF;) {
      if (c != '\n') {
        line += static_cast<char>(c);
      } else {
        arriving_.put(std::exchange(line, {}));
      }
    }
    std::fclose(stream);
  }

  int standardOutput_, end_;
  Mailbox<std::string> arriving_;
  std::vector<std::string> lines_;
  std::thread reader_;
};

/// Drains the main queue for its lifetime, as an application's main thread would.
class MainThread {
 public:
  MainThread() : thread_([] { DispatchQueue::main().run(); }) {}
  ~MainThread() {
    DispatchQueue::main().stop();
    thread_.join();
  }

 private:
  std::thread thread_;
};

inline sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

/// The other machine: a socket on 127.0.0.1 at a port that the kernel chose.
class Peer {
 public:
  /// Sends to `target` until a datagram arrives, then to the source of the last one.
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

  [[nodiscard]] std::uint16_t target() const { return ntohs(target_.sin_port); }

  void say(std::string_view message) { sendBytes(bytes(message)); }

  void sendBytes(const Data& data) {
    sendto(socket_, data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&target_),
           sizeof target_);
  }

  /// Waits for the next datagram. Absent after `limit`.
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

  std::string hearText(std::chrono::milliseconds limit = deadline) {
    const std::optional<Data> data = hear(limit);
    return data ? std::string(characters(*data)) : "(nothing)";
  }

  /// Whether nothing arrives within 100 ms, which is enough for datagrams on the way.
  bool hearsNothing() { return !hear(std::chrono::milliseconds(100)); }

 private:
  int socket_;
  std::uint16_t port_ = 0;
  sockaddr_in target_{};
};

/// Whether a port is free, as it is once an endpoint's thread has closed its socket.
inline bool isPortFree(std::uint16_t port) {
  const int probe = ::socket(AF_INET, SOCK_DGRAM, 0);
  const sockaddr_in address = loopback(port);
  const int result = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  close(probe);
  return result == 0;
}

/// Calls `create` with a free port. Returns its result and the port.
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
