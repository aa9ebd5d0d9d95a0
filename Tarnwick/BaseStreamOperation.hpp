#pragma once

#include <atomic>

#include "Tarnwick/Platform/NSOperation.hpp"

namespace tarnwick {

/// The base of the framework's operations: its subclass says itself, from main(), when it executes
/// and when it is finished. main() calls executing(true) when work begins, executing(false) when it
/// is done, and finish(true) last; when it finds itself cancelled, finish(true) alone.
class BaseStreamOperation : public NSOperation {
 public:
  BaseStreamOperation() : NSOperation(StateKeeper::subclass) {}

  /// Stores the value and announces it, whether or not it is a change.
  virtual void executing(bool value);
  virtual void finish(bool value);

  [[nodiscard]] bool isExecuting() const override { return executing_; }
  [[nodiscard]] bool isFinished() const override { return finished_; }

 private:
  std::atomic<bool> executing_ = false;
  std::atomic<bool> finished_ = false;
};

}  // namespace tarnwick
