#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace screenshare {

/// Keeps the sender's queue short, which would empty itself at a hundred messages and cannot be
/// asked how many it holds. A datagram leaves each time the sender's thread has slept for a
/// millisecond, and how late a busy machine wakes a thread shows in our own sleep; so what has left
/// can be estimated, a little low. For one thread.
class Pace {
 public:
  using Clock = std::chrono::steady_clock;

  /// `bandwidth` is what the network carries, in bytes a second.
  explicit Pace(double bandwidth)
      : bytesPerDatagram_(bandwidth * Seconds(sleepOfSender).count() / share) {}

  /// Notes that so many datagrams were queued, which hold so many bytes together.
  void add(std::int64_t datagrams, std::size_t bytes) {
    settle();
    owed_ += cost(datagrams, bytes);
  }

  /// How long they take to leave, on a machine that is not busy.
  [[nodiscard]] std::chrono::duration<double> time(std::int64_t datagrams,
                                                   std::size_t bytes) const {
    return cost(datagrams, bytes) / share * Seconds(sleepOfSender);
  }

  /// Waits until the queue is short again.
  void waitForRoom() {
    while (owed_ > allowance) sleep(2 * sleepOfSender);
  }

  void sleepUntil(Clock::time_point time) {
    const Clock::duration left = time - Clock::now();
    if (left > Clock::duration::zero()) sleep(left);
  }

 private:
  using Seconds = std::chrono::duration<double>;

  static constexpr std::chrono::milliseconds sleepOfSender{1};
  static constexpr double share = 0.8;  // of the datagrams that leave, which are counted
  // Enough for the changes of one frame, and a sixth of what the queue holds.
  static constexpr double allowance = 16;

  [[nodiscard]] double cost(std::int64_t datagrams, std::size_t bytes) const {
    return std::max(static_cast<double>(datagrams), static_cast<double>(bytes) / bytesPerDatagram_);
  }

  void sleep(Clock::duration time) {
    const Clock::time_point start = Clock::now();
    std::this_thread::sleep_for(time);
    constexpr double smoothing = 0.125;
    lateness_ += smoothing * (Seconds(Clock::now() - start - time) - lateness_);
    settle();
  }

  void settle() {
    const Clock::time_point now = Clock::now();
    owed_ = std::max(0.0, owed_ - share * ((now - settled_) / (sleepOfSender + lateness_)));
    settled_ = now;
  }

  const double bytesPerDatagram_;  // that the network carries while one is counted
  double owed_ = 0;                // datagrams in the queue, or as many as the network is slower
  Clock::time_point settled_ = Clock::now();
  Seconds lateness_{0};  // with which a sleep ends, on average
};

}  // namespace screenshare
