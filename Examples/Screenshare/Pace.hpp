#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <stop_token>
#include <thread>

namespace screenshare {

/// Keeps the sender's queue short, which would empty itself at a hundred messages and cannot be
/// asked how many it holds. A thread makes passes as the sender's own does, each with a millisecond
/// of sleep, and a pass of ours pays for a little less than the one datagram that leaves in a pass
/// of the sender's. So on a busy machine, which lets both run late, less is queued.
class Pace {
 public:
  /// `bandwidth` is what the network carries, in bytes a second.
  explicit Pace(double bandwidth) : bytesPerPass_(bandwidth / passesPerSecond) {}

  /// Notes that a picture was queued: its announcement, and its file as one datagram.
  void add(std::size_t fileSize) {
    const std::lock_guard lock(mutex_);
    owed_ += std::max(2.0, static_cast<double>(fileSize) / bytesPerPass_);
    changed_.notify_all();
  }

  /// Waits until the queue is short again.
  void wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return owed_ <= allowance; });
  }

 private:
  static constexpr double passesPerSecond = 1000, payment = 0.8;  // datagrams a pass
  // Enough for the changes of one frame, and a sixth of what the queue holds.
  static constexpr double allowance = 16;

  void makePasses(const std::stop_token& stopped) {
    std::unique_lock lock(mutex_);
    while (changed_.wait(lock, stopped, [this] { return owed_ > 0; })) {
      lock.unlock();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      lock.lock();
      owed_ = std::max(0.0, owed_ - payment);
      if (owed_ <= allowance) changed_.notify_all();
    }
  }

  const double bytesPerPass_;
  std::mutex mutex_;
  std::condition_variable_any changed_;
  double owed_ = 0;  // guarded by mutex_: passes that what was queued still takes
  std::jthread passes_{[this](const std::stop_token& stopped) { makePasses(stopped); }};
};

}  // namespace screenshare
