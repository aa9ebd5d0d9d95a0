#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "Tarnwick/Platform/Mutex.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// One unit of work. A subclass overrides main(); a queue or start() runs it. Observers are called
/// before and after every change of "isExecuting" and "isFinished". The operation is done once it
/// has reported itself finished, on any thread. Its completion block then runs once. Owned by
/// std::shared_ptr. Any thread may call any member.
class NSOperation {
 public:
  /// Creates an operation that is neither executing nor finished.
  NSOperation() = default;
  virtual ~NSOperation() = default;
  NSOperation(const NSOperation&) = delete;
  NSOperation& operator=(const NSOperation&) = delete;

  /// The work. Called on one of the queue's threads, or by start(). It is also called on a
  /// cancelled operation and must check isCancelled() itself. It may call any member. It must not
  /// throw: an exception on a queue's thread terminates the process.
  virtual void main() {}

  /// Runs main() on the calling thread. Only for operations that are not on a queue.
  void start();

  /// Sets isCancelled(), which main() checks. Work that has begun may ignore it.
  void cancel() noexcept { isCancelled_ = true; }

  /// Whether cancel() was called.
  [[nodiscard]] bool isCancelled() const noexcept { return isCancelled_; }

  /// Whether the work is in progress.
  [[nodiscard]] virtual bool isExecuting() const { return isExecuting_; }

  /// Whether the work has ended.
  [[nodiscard]] virtual bool isFinished() const { return isFinished_; }

  /// Sets the block to run when the operation is done. Set it before the operation begins.
  ///
  /// On a queue, the block runs on the thread that ran main(), which starts no other operation
  /// before the block returns. Without a queue, it runs on the thread that reports the operation
  /// finished. No lock is held: the block may call any member of the operation and of the queue,
  /// and may destroy the queue. It must not throw: an exception on a queue's thread terminates the
  /// process. It is destroyed after it has run, so it may own the operation itself.
  void setCompletionBlock(std::function<void()> block);

  /// When an observer is called.
  enum class Change {
    will,  ///< before a change: the operation has the old value
    did,   ///< after a change: the operation has the new value
  };

  /// Called before and after a change of the key "isExecuting" or "isFinished", on the thread that
  /// makes the change, which waits for it. No lock is held: it may call any member. It must not
  /// throw: an exception on a queue's thread terminates the process.
  using Observer = std::function<void(const NSOperation&, std::string_view key, Change)>;

  /// Adds an observer. The operation owns its observers. An observer must therefore not own the
  /// operation: neither would ever be destroyed.
  void addObserver(Observer observer);

 protected:
  /// Which class stores the executing and the finished state.
  enum class StateKeeper {
    operation,  ///< NSOperation
    subclass,   ///< the derived class
  };

  /// With StateKeeper::subclass, start() only calls main(). The subclass overrides isExecuting()
  /// and isFinished() and announces every change.
  explicit NSOperation(StateKeeper keeper) : keeper_(keeper) {}

  /// Calls the observers before a change of the key's value.
  void willChangeValue(std::string_view key);

  /// Calls the observers after a change of the key's value. If the key is "isFinished" and
  /// isFinished() is true, the operation is then done.
  void didChangeValue(std::string_view key);

 private:
  friend class NSOperationQueue;

  void assign(std::atomic<bool>& field, std::string_view key, bool value);
  void announce(std::string_view key, Change change);
  void reportFinished();
  void joinQueue();
  void waitUntilFinished();
  void runCompletionBlock();

  const StateKeeper keeper_ = StateKeeper::operation;
  std::atomic<bool> isCancelled_ = false;
  std::atomic<bool> isExecuting_ = false;
  std::atomic<bool> isFinished_ = false;

  Mutex lock_;
  std::condition_variable_any finished_;
  bool hasReportedFinished_ TARNWICK_GUARDED_BY(lock_) = false;
  bool isQueued_ TARNWICK_GUARDED_BY(lock_) = false;
  std::function<void()> completionBlock_ TARNWICK_GUARDED_BY(lock_);
  // Replaced as a whole, never modified: announcing a change shares it and allocates nothing.
  std::shared_ptr<const std::vector<Observer>> observers_ TARNWICK_GUARDED_BY(lock_);
};

}  // namespace tarnwick
