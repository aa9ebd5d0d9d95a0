#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>

#include "Tarnwick/Platform/Mutex.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// A counting semaphore that starts at zero. Any thread may call any member. Used instead of
/// std::counting_semaphore, which in the releases in use can miss a signal that arrives while it
/// begins to wait.
class DispatchSemaphore {
 public:
  /// Whether the mutex could be initialised. If not, call no other member.
  [[nodiscard]] bool isUsable() const noexcept { return lock_.isUsable(); }

  /// Adds one to the count and wakes a waiting thread.
  void signal();

  /// Waits until the count is above zero and decrements it. Returns false after `timeout`.
  [[nodiscard]] bool wait(std::chrono::milliseconds timeout);

 private:
  Mutex lock_;
  std::condition_variable_any signalled_;
  std::uint64_t count_ TARNWICK_GUARDED_BY(lock_) = 0;
};

}  // namespace tarnwick
