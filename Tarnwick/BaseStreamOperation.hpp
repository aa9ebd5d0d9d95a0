#pragma once

#include <atomic>

#include "Tarnwick/Platform/NSOperation.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// The base of the framework's operations: its subclass says itself, from main(), when it executes
/// and when it is finished. main() calls executing(true) when work begins, executing(false) when it
/// is done, and finish(true) last; when it finds itself cancelled, finish(true) alone.
class BaseStreamOperation : public NSOperation {
 public:
  /// Neither executing nor finished.
  BaseStreamOperation() : NSOperation(StateKeeper::subclass) {}

  /// Stores whether the work is under way, and announces it, whether or not it is a change.
  virtual void executing(bool value);

  /// Stores whether the operation is finished, and announces it likewise. With the first `true` it
  /// is done, for good.
  virtual void finish(bool value);

  /// What executing() was told last.
  [[nodiscard]] bool isExecuting() const override { return executing_; }

  /// What finish() was told last.
  [[nodiscard]] bool isFinished() const override { return finished_; }

 private:
  std::atomic<bool> executing_ = false;
  std::atomic<bool> finished_ = false;
};

}  // namespace tarnwick
