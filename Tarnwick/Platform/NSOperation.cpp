#include "Tarnwick/Platform/NSOperation.hpp"

#include <utility>

namespace tarnwick {
namespace {

constexpr std::string_view executingKey = "isExecuting";
constexpr std::string_view finishedKey = "isFinished";

}  // namespace

void NSOperation::start() {
  if (keeper_ == StateKeeper::subclass) {
    main();
    return;
  }
  assign(isExecuting_, executingKey, true);
  main();
  assign(isExecuting_, executingKey, false);
  assign(isFinished_, finishedKey, true);
}

void NSOperation::setCompletionBlock(std::function<void()> block) {
  const MutexLock lock(lock_);
  completionBlock_.swap(block);
}

void NSOperation::addObserver(Observer observer) {
  const MutexLock lock(lock_);
  auto observers = observers_ ? std::make_shared<std::vector<Observer>>(*observers_)
                              : std::make_shared<std::vector<Observer>>();
  observers->push_back(std::move(observer));
  observers_ = std::move(observers);
}

void NSOperation::willChangeValue(std::string_view key) { announce(key, Change::will); }

void NSOperation::didChangeValue(std::string_view key) {
  announce(key, Change::did);
  if (key == finishedKey && isFinished()) reportFinished();
}

void NSOperation::assign(std::atomic<bool>& field, std::string_view key, bool value) {
  willChangeValue(key);
  field = value;
  didChangeValue(key);
}

void NSOperation::announce(std::string_view key, Change change) {
  std::shared_ptr<const std::vector<Observer>> observers;
  {
    const MutexLock lock(lock_);
    observers = observers_;
  }
  if (!observers) return;
  for (const Observer& observer : *observers) observer(*this, key, change);
}

void NSOperation::reportFinished() {
  bool isQueued = false;
  {
    const MutexLock lock(lock_);
    hasReportedFinished_ = true;
    isQueued = isQueued_;
    // Under the lock: after it, the queue may destroy the operation.
    finished_.notify_all();
  }
  if (!isQueued) runCompletionBlock();
}

void NSOperation::joinQueue() {
  const MutexLock lock(lock_);
  isQueued_ = true;
}

void NSOperation::waitUntilFinished() {
  const MutexLock lock(lock_);
  while (!hasReportedFinished_) finished_.wait(lock_);
}

void NSOperation::runCompletionBlock() {
  std::function<void()> block;
  {
    const MutexLock lock(lock_);
    block.swap(completionBlock_);
  }
  if (block) block();
}

}  // namespace tarnwick
