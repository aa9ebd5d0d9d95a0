#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "Tarnwick/Platform/Mutex.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// One unit of work: a subclass overrides main(), and a queue, or start(), runs it. The operation
/// tells its observers of every change of "isExecuting" and "isFinished", before and after; it is
/// done once it has reported itself finished, from whatever thread, and then its completion block
/// runs, once. Held by std::shared_ptr. Any thread may call any member.
class NSOperation {
 public:
  /// Neither executing nor finished.
  NSOperation() = default;
  virtual ~NSOperation() = default;
  NSOperation(const NSOperation&) = delete;
  NSOperation& operator=(const NSOperation&) = delete;

  /// The work, which must not throw. Called also on a cancelled operation: it looks at
  /// isCancelled() itself.
  virtual void main() {}

  /// Runs main() on the calling thread; for an operation that no queue has.
  void start();

  /// Asks the work not to begin; work that has begun need not look.
  void cancel() noexcept { isCancelled_ = true; }

  /// Whether it was asked.
  [[nodiscard]] bool isCancelled() const noexcept { return isCancelled_; }

  /// Whether the work is under way.
  [[nodiscard]] virtual bool isExecuting() const { return isExecuting_; }

  /// Whether the work is over.
  [[nodiscard]] virtual bool isFinished() const { return isFinished_; }

  /// What to do when the operation is done: on its queue's thread or, without a queue, on the
  /// thread that reports it finished. To be set before the operation begins. The block must not
  /// throw. It is released when it has run, so it may hold the operation itself.
  void setCompletionBlock(std::function<void()> block);

  /// When an observer is told.
  enum class Change {
    will,  ///< before a change: the operation has the old value
    did,   ///< after it: the operation has the new one
  };

  /// Told of a change of the key "isExecuting" or "isFinished", on the thread that makes it. It
  /// must not throw.
  using Observer = std::function<void(const NSOperation&, std::string_view key, Change)>;

  /// Adds an observer, which stays as long as the operation.
  void addObserver(Observer observer);

 protected:
  /// Who keeps the executing and the finished state.
  enum class StateKeeper {
    operation,  ///< this class
    subclass,   ///< the class derived from it
  };

  /// With StateKeeper::subclass, start() leaves executing and finished to the subclass, which
  /// overrides isExecuting() and isFinished() and announces every change.
  explicit NSOperation(StateKeeper keeper) : keeper_(keeper) {}

  /// Tells the observers that the key's value is about to change.
  void willChangeValue(std::string_view key);

  /// Tells the observers that the key's value has changed. An operation that is finished by then is
  /// done.
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
  // Replaced as a whole, never changed: an announcement shares it, which allocates nothing.
  std::shared_ptr<const std::vector<Observer>> observers_ TARNWICK_GUARDED_BY(lock_);
};

}  // namespace tarnwick
