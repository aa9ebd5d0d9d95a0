#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <string_view>
#include <vector>

#include "Tarnwick/Platform/Mutex.hpp"

namespace tarnwick {

/// One unit of work: a subclass overrides main(), and a queue, or start(), runs it. The operation
/// tells its observers of every change of "isExecuting" and "isFinished", before and after; it is
/// done once it has reported itself finished, from whatever thread, and then its completion block
/// runs, once. Held by std::shared_ptr. Any thread may call any member.
class NSOperation {
 public:
  NSOperation() = default;
  virtual ~NSOperation() = default;
  NSOperation(const NSOperation&) = delete;
  NSOperation& operator=(const NSOperation&) = delete;

  /// The work, which must not throw. Called also on a cancelled operation: it looks at
  /// isCancelled() itself.
  virtual void main() {}

  /// Runs main() on the calling thread.
  void start();

  /// Asks the work not to begin; work that has begun need not look.
  void cancel() noexcept { isCancelled_ = true; }
  [[nodiscard]] bool isCancelled() const noexcept { return isCancelled_; }

  [[nodiscard]] virtual bool isExecuting() const { return isExecuting_; }
  [[nodiscard]] virtual bool isFinished() const { return isFinished_; }

  /// What to do when the operation is done: on its queue's thread or, without a queue, on the
  /// thread that reports it finished. The block is released when it has run, so it may hold the
  /// operation itself.
  void setCompletionBlock(std::function<void()> block);

  enum class Change { will, did };

  /// Told of a key's change on the thread that makes it: at `will` the operation has the old value,
  /// at `did` the new one.
  using Observer = std::function<void(const NSOperation&, std::string_view key, Change)>;
  void addObserver(Observer observer);

 protected:
  enum class StateKeeper { operation, subclass };

  /// With StateKeeper::subclass, start() leaves executing and finished to the subclass, which
  /// overrides isExecuting() and isFinished() and announces every change.
  explicit NSOperation(StateKeeper keeper) : keeper_(keeper) {}

  void willChangeValue(std::string_view key);
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
  std::vector<Observer> observers_ TARNWICK_GUARDED_BY(lock_);
};

}  // namespace tarnwick
