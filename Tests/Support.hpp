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

/// Longer than anything here takes on the slowest machine: passed only when a test fails.
inline constexpr std::chrono::seconds deadline{20};

/// Where one thread leaves what another waits for.
template <typename Item>
class Mailbox {
 public:
  void put(Item item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    arrived_.notify_all();
  }

  /// The oldest item, waited for; absent when the deadline has passed.
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

/// Waits until a condition holds that nobody announces; false when the deadline has passed.
template <typename Condition>
bool eventually(Condition holds) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/// Takes standard output over for its lifetime and collects it line by line.
class Output {
 public:
  /// Reads nothing before beginReading() if it is to block whoever writes.
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
    // What was taken is shown after all: the test's own messages are among it.
    while (const auto line = arriving_.await(std::chrono::milliseconds(0))) lines_.push_back(*line);
    for (const std::string& line : lines_) std::printf("%s\n", line.c_str());
  }

  void beginReading() {
    reader_ = std::thread([this] { read(end_); });
  }

  /// Waits for a line, word for word; false when the deadline has passed. What came before it is
  /// kept in lines().
  bool awaitLine(const std::string& expected) {
    while (auto line = arriving_.await()) {
      lines_.push_back(*line);
      if (*line == expected) return true;
    }
    return false;
  }

  /// The lines that awaitLine() has seen.
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
  int socket_;
  std::uint16_t port_ = 0;
  sockaddr_in target_{};
};

/// Whether nobody is bound to a port: the thread that closes an endpoint's socket has done so.
inline bool isPortFree(std::uint16_t port) {
  const int probe = ::socket(AF_INET, SOCK_DGRAM, 0);
  const sockaddr_in address = loopback(port);
  const int result = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
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
