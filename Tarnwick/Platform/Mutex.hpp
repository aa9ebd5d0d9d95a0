#pragma once

#include <pthread.h>

// Clang's thread-safety annotations; empty for other compilers. See
// https://clang.llvm.org/docs/ThreadSafetyAnalysis.html.
#if defined(__clang__)
#define TARNWICK_ANNOTATION(x) __attribute__((x))
#else
#define TARNWICK_ANNOTATION(x)
#endif
#define TARNWICK_CAPABILITY(x) TARNWICK_ANNOTATION(capability(x))
#define TARNWICK_SCOPED_CAPABILITY TARNWICK_ANNOTATION(scoped_lockable)
#define TARNWICK_GUARDED_BY(x) TARNWICK_ANNOTATION(guarded_by(x))
#define TARNWICK_REQUIRES(x) TARNWICK_ANNOTATION(requires_capability(x))
#define TARNWICK_EXCLUDES(x) TARNWICK_ANNOTATION(locks_excluded(x))
#define TARNWICK_ACQUIRE(...) TARNWICK_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TARNWICK_RELEASE(...) TARNWICK_ANNOTATION(release_capability(__VA_ARGS__))

namespace [[gnu::visibility("default")]] tarnwick {

/// A POSIX mutex with default attributes. Its initialisation can fail: a class that can report this
/// checks `isUsable()` before the first use. Lock it through MutexLock, for few lines.
class TARNWICK_CAPABILITY("mutex") Mutex {
 public:
  Mutex() noexcept : initialisation_(pthread_mutex_init(&mutex_, nullptr)) {}
  ~Mutex() {
    if (isUsable()) pthread_mutex_destroy(&mutex_);
  }
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  /// Whether the initialisation succeeded. If not, the mutex must not be locked.
  [[nodiscard]] bool isUsable() const noexcept { return initialisation_ == 0; }

  void lock() noexcept TARNWICK_ACQUIRE() { pthread_mutex_lock(&mutex_); }
  void unlock() noexcept TARNWICK_RELEASE() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_;
  const int initialisation_;
};

/// Locks a Mutex from its construction to the end of the scope.
class TARNWICK_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) noexcept TARNWICK_ACQUIRE(mutex) : mutex_(mutex) {
    mutex_.lock();
  }
  ~MutexLock() TARNWICK_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace tarnwick
