#pragma once

#include <chrono>
#include <functional>

namespace tarnwick {

/// Detached threads, and settings of the calling thread.
class NSThread final {
 public:
  NSThread() = delete;

  /// Runs `body` on a new detached thread with the priority 0.5, whatever the calling thread's
  /// priority. `body` is destroyed on the new thread. It must not throw: that terminates the
  /// process. Throws std::system_error if no thread can be started.
  static void detachNewThread(std::function<void()> body);

  /// Requests a priority from 0 (lowest) to 1 (highest) for the calling thread. 0.5 is the
  /// process's own. It is not an error if the system refuses or has only one priority. Threads that
  /// the calling thread starts inherit the priority, except those of detachNewThread().
  static void setThreadPriority(double priority) noexcept;

  /// Suspends the calling thread for at least `duration`.
  static void sleep(std::chrono::microseconds duration);
};

}  // namespace tarnwick
