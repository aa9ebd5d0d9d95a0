#pragma once

#include <cstdint>
#include <memory>

#include "Tarnwick/Platform/NSOperation.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Runs operations on threads of its own, begun in the order in which they were added. An
/// operation's place is taken from its main() until it has reported itself finished, its completion
/// block has run and the queue has released it; so with a count of one, results come in order and
/// one at a time. Any thread may call any member, and the last reference to the queue may go
/// anywhere, a completion block included: operations that wait still run.
///
/// A thread is started when an operation needs one. It then waits for further operations, until the
/// queue is destroyed or cancelAllOperations() is called. No member throws when a thread cannot be
/// started: the operation waits for the next call of any member, the destructor included, or for a
/// thread that becomes free.
class NSOperationQueue {
 public:
  /// Empty, and with one operation a processor at once.
  NSOperationQueue();
  ~NSOperationQueue();
  NSOperationQueue(const NSOperationQueue&) = delete;
  NSOperationQueue& operator=(const NSOperationQueue&) = delete;

  /// How many operations may run at once. Zero lets none begin; a negative count, the initial
  /// setting, means one a processor.
  void setMaxConcurrentOperationCount(std::int64_t count);

  /// Adds an operation, not null, which belongs to this queue alone. Throws std::bad_alloc when no
  /// memory is left, which changes nothing.
  void addOperation(std::shared_ptr<NSOperation> operation);

  /// Cancels the operations that wait and those that run. They stay on the queue and finish in
  /// their own way. From then on a thread ends as soon as no operation waits, and operations that
  /// are added later start a new one.
  void cancelAllOperations();

 private:
  class State;

  const std::shared_ptr<State> state_;  // shared with the threads, which may outlive the queue
};

}  // namespace tarnwick
