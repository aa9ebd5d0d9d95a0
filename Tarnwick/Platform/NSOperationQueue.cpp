#include "Tarnwick/Platform/NSOperationQueue.hpp"

#include <algorithm>
#include <condition_variable>
#include <list>
#include <utility>

#include "Tarnwick/Platform/Concurrently.hpp"
#include "Tarnwick/Platform/NSThread.hpp"

namespace tarnwick {

class NSOperationQueue::State : public std::enable_shared_from_this<State> {
 public:
  void setMaximum(std::size_t maximum) {
    {
      const MutexLock lock(lock_);
      maximum_ = maximum;
    }
    startWorkers();
  }

  void add(std::shared_ptr<NSOperation> operation) {
    std::list<std::shared_ptr<NSOperation>> added;
    added.push_back(std::move(operation));  // may throw: nothing has changed yet
    added.back()->joinQueue();
    {
      const MutexLock lock(lock_);
      waiting_.splice(waiting_.end(), added);
    }
    changed_.notify_all();  // not notify_one(): the woken worker may be surplus and end
    startWorkers();
  }

  void cancelAll() {
    {
      const MutexLock lock(lock_);
      for (const auto& operation : running_) operation->cancel();
      for (const auto& operation : waiting_) operation->cancel();
    }
    endIdleWorkers();
  }

  /// Ends the idle workers, and from now on every worker that becomes idle.
  void endIdleWorkers() {
    {
      const MutexLock lock(lock_);
      keepsIdleWorkers_ = false;
    }
    changed_.notify_all();
    startWorkers();
  }

 private:
  /// Starts a worker for each waiting operation without a free worker, up to the maximum. If a
  /// worker cannot be started, its operation waits for the next call or the next free worker.
  void startWorkers() noexcept {
    while (reserveWorker()) {
      try {
        NSThread::detachNewThread([state = shared_from_this()] { state->work(); });
      } catch (...) {
        const MutexLock lock(lock_);
        --workers_;
        return;
      }
    }
  }

  bool reserveWorker() {
    const MutexLock lock(lock_);
    const std::size_t free = workers_ - running_.size();
    if (waiting_.size() <= free || workers_ >= maximum_) return false;
    ++workers_;
    return true;
  }

  void work() {
    while (std::shared_ptr<NSOperation> operation = next()) {
      operation->start();
      operation->waitUntilFinished();
      operation->runCompletionBlock();
      release(operation);
    }
  }

  /// The next operation for a worker; null if the worker must end.
  std::shared_ptr<NSOperation> next() {
    const MutexLock lock(lock_);
    while (waiting_.empty() && keepsIdleWorkers_) changed_.wait(lock_);
    if (waiting_.empty() || workers_ > maximum_) {
      --workers_;
      return nullptr;
    }
    running_.splice(running_.end(), waiting_, waiting_.begin());  // allocates nothing
    return running_.back();
  }

  /// Removes a finished operation from the list. The worker drops its own reference, which may be
  /// the last one, after the lock.
  void release(const std::shared_ptr<NSOperation>& operation) {
    const MutexLock lock(lock_);
    running_.erase(std::find(running_.begin(), running_.end(), operation));
  }

  Mutex lock_;
  std::condition_variable_any changed_;
  std::list<std::shared_ptr<NSOperation>> waiting_ TARNWICK_GUARDED_BY(lock_);
  std::list<std::shared_ptr<NSOperation>> running_ TARNWICK_GUARDED_BY(lock_);
  std::size_t maximum_ TARNWICK_GUARDED_BY(lock_) = processorCount();
  std::size_t workers_ TARNWICK_GUARDED_BY(lock_) = 0;  // each runs one operation or is free
  bool keepsIdleWorkers_ TARNWICK_GUARDED_BY(lock_) = true;
};

NSOperationQueue::NSOperationQueue() : state_(std::make_shared<State>()) {}

NSOperationQueue::~NSOperationQueue() { state_->endIdleWorkers(); }

void NSOperationQueue::setMaxConcurrentOperationCount(std::int64_t count) {
  state_->setMaximum(count < 0 ? processorCount() : static_cast<std::size_t>(count));
}

void NSOperationQueue::addOperation(std::shared_ptr<NSOperation> operation) {
  state_->add(std::move(operation));
}

void NSOperationQueue::cancelAllOperations() { state_->cancelAll(); }

}  // namespace tarnwick
