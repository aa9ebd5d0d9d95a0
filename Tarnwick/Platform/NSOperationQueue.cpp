#include "Tarnwick/Platform/NSOperationQueue.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <utility>
#include <vector>

#include "Tarnwick/Platform/Concurrently.hpp"
#include "Tarnwick/Platform/NSThread.hpp"

namespace tarnwick {
namespace {

/// A worker ends after this time without work: longer than the pause between the pictures of a
/// stream, which need no new thread each, and short enough that a stream's end leaves none behind.
constexpr std::chrono::seconds idleTime{1};

}  // namespace

class NSOperationQueue::State : public std::enable_shared_from_this<State> {
 public:
  void setMaximum(std::size_t maximum) {
    {
      const MutexLock lock(lock_);
      maximum_ = maximum;
    }
    changed_.notify_all();
    startWorkers();
  }

  void add(std::shared_ptr<NSOperation> operation) {
    operation->joinQueue();
    {
      const MutexLock lock(lock_);
      waiting_.push_back(std::move(operation));
    }
    changed_.notify_one();
    startWorkers();
  }

  void cancelAll() {
    const MutexLock lock(lock_);
    for (const auto& operation : running_) operation->cancel();
    for (const auto& operation : waiting_) operation->cancel();
  }

  void abandon() {
    {
      const MutexLock lock(lock_);
      isAbandoned_ = true;
    }
    changed_.notify_all();
  }

 private:
  /// Starts a worker for each operation that none is free for, as far as the maximum allows.
  void startWorkers() {
    while (reserveWorker()) {
      try {
        NSThread::detachNewThread([state = shared_from_this()] { state->work(); });
      } catch (...) {
        const MutexLock lock(lock_);
        --workers_;
        throw;
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

  /// The next operation for a worker; none when the worker is to end.
  std::shared_ptr<NSOperation> next() {
    const auto deadline = std::chrono::steady_clock::now() + idleTime;
    const MutexLock lock(lock_);
    while (waiting_.empty() && !isAbandoned_ && workers_ <= maximum_) {
      if (changed_.wait_until(lock_, deadline) == std::cv_status::timeout) break;
    }
    if (waiting_.empty() || workers_ > maximum_) {
      --workers_;
      return nullptr;
    }
    running_.push_back(std::move(waiting_.front()));
    waiting_.pop_front();
    return running_.back();
  }

  /// Takes a finished operation off the list; the worker's own reference, which may be the last,
  /// goes after the lock.
  void release(const std::shared_ptr<NSOperation>& operation) {
    const MutexLock lock(lock_);
    running_.erase(std::find(running_.begin(), running_.end(), operation));
  }

  Mutex lock_;
  std::condition_variable_any changed_;
  std::deque<std::shared_ptr<NSOperation>> waiting_ TARNWICK_GUARDED_BY(lock_);
  std::vector<std::shared_ptr<NSOperation>> running_ TARNWICK_GUARDED_BY(lock_);
  std::size_t maximum_ TARNWICK_GUARDED_BY(lock_) = processorCount();
  std::size_t workers_ TARNWICK_GUARDED_BY(lock_) = 0;  // each runs one operation or is free
  bool isAbandoned_ TARNWICK_GUARDED_BY(lock_) = false;
};

NSOperationQueue::NSOperationQueue() : state_(std::make_shared<State>()) {}

NSOperationQueue::~NSOperationQueue() { state_->abandon(); }

void NSOperationQueue::setMaxConcurrentOperationCount(std::int64_t count) {
  state_->setMaximum(count < 0 ? processorCount() : static_cast<std::size_t>(count));
}

void NSOperationQueue::addOperation(std::shared_ptr<NSOperation> operation) {
  state_->add(std::move(operation));
}

void NSOperationQueue::cancelAllOperations() { state_->cancelAll(); }

}  // namespace tarnwick
