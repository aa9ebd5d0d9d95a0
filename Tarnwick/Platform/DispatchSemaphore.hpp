#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>

#include "Tarnwick/Platform/Mutex.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// A counting semaphore that starts at zero. Any thread may call any member. (The standard
/// library's own can, in the releases in use, sleep through a signal that arrives while it begins
/// to wait.)
class DispatchSemaphore {
 public:
  /// Whether the system granted its mutex. A semaphore without one must not be used.
  [[nodiscard]] bool isUsable() const noexcept { return lock_.isUsable(); }

  /// Adds one to the count and wakes a waiting thread.
  void signal();

  /// Waits until the count is above zero and takes one off; false when `timeout` passed first.
  [[nodiscard]] bool wait(std::chrono::milliseconds timeout);

 private:
  Mutex lock_;
  std::condition_variable_any signalled_;
  std::uint64_t count_ TARNWICK_GUARDED_BY(lock_) = 0;
};

}  // namespace tarnwick
