#pragma once

#include <atomic>

#include "Tarnwick/Platform/NSOperation.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// The base of the framework's operations. The subclass sets its state from main(): executing(true)
/// when work begins, executing(false) when the work is done, and finish(true) last. If main() finds
/// the operation cancelled, it calls finish(true) only.
class BaseStreamOperation : public NSOperation {
 public:
  /// Neither executing nor finished.
  BaseStreamOperation() : NSOperation(StateKeeper::subclass) {}

  /// Sets the executing state and notifies the observers, even if the value is unchanged.
  virtual void executing(bool value);

  /// Sets the finished state and notifies the observers, even if the value is unchanged. The first
  /// `true` completes the operation permanently.
  virtual void finish(bool value);

  /// Returns the last argument of executing().
  [[nodiscard]] bool isExecuting() const override { return executing_; }

  /// Returns the last argument of finish().
  [[nodiscard]] bool isFinished() const override { return finished_; }

 private:
  std::atomic<bool> executing_ = false;
  std::atomic<bool> finished_ = false;
};

}  // namespace tarnwick
