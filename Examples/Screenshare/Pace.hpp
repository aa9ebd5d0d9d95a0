#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace screenshare {

/// Keeps the sender's queue short. The queue is emptied when it exceeds 100 messages and does not
/// report its length, so this class estimates it. The send thread sends a datagram after each sleep
/// of a millisecond. How late a busy machine ends a sleep is measured with this thread's sleeps.
/// The estimate of what was sent is a little low. For one thread.
class Pace {
 public:
  using Clock = std::chrono::steady_clock;

  /// `bandwidth` is the capacity of the network, in bytes per second.
  explicit Pace(double bandwidth)
      : bytesPerDatagram_(bandwidth * Seconds(sleepOfSender).count() / share) {}

  /// Records that `datagrams` datagrams of `bytes` bytes in total were queued.
  void add(std::int64_t datagrams, std::size_t bytes) {
    settle();
    owed_ += cost(datagrams, bytes);
  }

  /// Returns how long sending them takes on a machine that is not busy.
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
  static constexpr double share = 0.8;  // the fraction of the sent datagrams that is counted
  // In datagrams: enough for the changes of one frame, and a sixth of what the queue holds.
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

  const double bytesPerDatagram_;  // that the network carries per counted datagram
  double owed_ = 0;                // datagrams in the queue; more on a slow network
  Clock::time_point settled_ = Clock::now();
  Seconds lateness_{0};  // average delay of the end of a sleep
};

}  // namespace screenshare
