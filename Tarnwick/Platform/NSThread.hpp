#pragma once

#include <chrono>
#include <functional>

namespace tarnwick {

/// Threads that nobody waits for.
class NSThread final {
 public:
  NSThread() = delete;

  /// Runs `body` on a new thread that nobody waits for. It begins with the priority 0.5, whatever
  /// the calling thread's is. What the body holds is released on that thread. Throws
  /// std::system_error when no thread can be started.
  static void detachNewThread(std::function<void()> body);

  /// Asks for a priority of the calling thread between 0 (lowest) and 1 (highest). 0.5 is the
  /// process's own. The system may refuse, or know one priority only; either is ignored. Threads
  /// that the calling thread starts inherit it, except through detachNewThread().
  static void setThreadPriority(double priority) noexcept;

  /// Suspends the calling thread for at least `duration`.
  static void sleep(std::chrono::microseconds duration);
};

}  // namespace tarnwick
