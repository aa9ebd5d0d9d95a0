#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <thread>

#include "Tarnwick/Platform/Mutex.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

template <typename Value>
class NeverDestroyed;

/// The main queue: runs blocks one at a time, in the order in which they were added. The framework
/// passes every completed object through it, so an application must drain it: with run() on a
/// thread of its choice, or with drain() from its own event loop whenever fileDescriptor() is
/// readable. Any thread may call any member.
class DispatchQueue {
 public:
  /// The queue of the process. It is never destroyed, so that threads that are still running after
  /// the program's `main` has returned can use it.
  static DispatchQueue& main();

  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  /// Adds a block and returns at once. Throws std::bad_alloc if memory is short; the queue is then
  /// unchanged.
  ///
  /// The block runs on the thread that calls drain() or run(), and is destroyed on that thread. It
  /// may call any member. Later blocks wait while it runs. An exception from the block leaves the
  /// drain() or run() that called it; later blocks remain queued.
  void async(std::function<void()> block);

  /// Runs the blocks that are queued now, on the calling thread, and returns their number. Blocks
  /// that are added meanwhile wait for the next call. Concurrent calls take turns. A call from a
  /// block runs nothing and returns 0.
  std::size_t drain();

  /// Drains the queue and waits for more blocks, until stop() is called. A call from a block only
  /// waits for stop(). Several threads may call run() and drain(): blocks still run one at a time.
  void run();

  /// Makes one run() return, after the drain in progress. With several threads in run(), each call
  /// makes one of them return; a second call before that has no effect. If no thread is in run(),
  /// the next run() returns at once. Do not call it from a signal handler: it takes a lock.
  void stop();

  /// Returns a descriptor for poll() or epoll that is readable while blocks wait for a drain(). A
  /// drain() makes it unreadable when it begins; the next block that is added makes it readable
  /// again. Edge-triggered waiting (EPOLLET) therefore works with one drain() per event. The queue
  /// owns it: do not read from it or close it. Throws std::system_error if no pipe can be created.
  [[nodiscard]] int fileDescriptor() const;

 private:
  friend class NeverDestroyed<DispatchQueue>;

  DispatchQueue() = default;
  ~DispatchQueue() = default;

  class Turn;

  std::function<void()> takeFirst() TARNWICK_EXCLUDES(lock_);
  void setReadable(bool value) const TARNWICK_REQUIRES(lock_);

  mutable Mutex lock_;
  std::condition_variable_any changed_;
  std::deque<std::function<void()>> blocks_ TARNWICK_GUARDED_BY(lock_);
  std::thread::id drainer_ TARNWICK_GUARDED_BY(lock_);  // the draining thread, if any
  bool stopped_ TARNWICK_GUARDED_BY(lock_) = false;
  // A pipe that holds one byte while it is readable. The first fileDescriptor() creates it.
  mutable int readEnd_ TARNWICK_GUARDED_BY(lock_) = -1;
  mutable int writeEnd_ TARNWICK_GUARDED_BY(lock_) = -1;
  mutable bool isReadable_ TARNWICK_GUARDED_BY(lock_) = false;
};

}  // namespace tarnwick
