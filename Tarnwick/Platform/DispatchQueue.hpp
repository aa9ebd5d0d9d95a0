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

/// The main queue: blocks that wait to be run one after another, in the order in which they came.
/// The framework hands every completed object over through it, so an application must drain it:
/// with run() on a thread of its own choice, or with drain() from its own event loop whenever
/// fileDescriptor() is readable. Any thread may call any member.
class DispatchQueue {
 public:
  /// The one queue of the process. It is never destroyed, so that threads which outlive the end of
  /// the program's `main` find it whole.
  static DispatchQueue& main();

  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  /// Adds a block and returns at once. The block is released on the thread that ran it. Throws
  /// std::bad_alloc when no memory is left, which changes nothing.
  void async(std::function<void()> block);

  /// Runs the blocks that wait now, on the calling thread, and returns how many it ran; blocks that
  /// are added meanwhile wait for the next call. One caller at a time: another waits for its turn,
  /// and a block that calls it runs none. What a block throws passes; the later ones wait on.
  std::size_t drain();

  /// Drains, and waits for more, until stop() is called. Called by a block it only waits for that.
  /// Several threads may call run() and drain(): blocks still run one at a time, in order.
  void run();

  /// Lets one run() return after the blocks under way. With several threads in run(), each call
  /// makes one of them return; a second call before it has returned changes nothing. With none, the
  /// next run() returns at once. Not for signal handlers, as it takes a lock.
  void stop();

  /// A descriptor that is readable while blocks wait that no drain() has begun with, for poll() and
  /// its kin. It becomes readable anew with the first block that is added after a drain() began, so
  /// edge-triggered waiting (EPOLLET) works with one drain() per event. It belongs to the queue:
  /// read nothing from it and do not close it. Throws std::system_error if there is none.
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
  std::thread::id drainer_ TARNWICK_GUARDED_BY(lock_);  // the thread that drains, if one does
  bool stopped_ TARNWICK_GUARDED_BY(lock_) = false;
  // A pipe that holds one byte while it is readable, made by the first fileDescriptor().
  mutable int readEnd_ TARNWICK_GUARDED_BY(lock_) = -1;
  mutable int writeEnd_ TARNWICK_GUARDED_BY(lock_) = -1;
  mutable bool isReadable_ TARNWICK_GUARDED_BY(lock_) = false;
};

}  // namespace tarnwick
