#pragma once

#include <cstdint>
#include <memory>

#include "Tarnwick/Platform/NSOperation.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Runs operations on its own threads and starts them in the order in which they were added. An
/// operation counts as running until it has reported itself finished, its completion block has
/// returned and the queue has released it. With a maximum of one, results arrive in order. Any
/// thread may call any member. The queue may be destroyed on any thread, also in a completion
/// block. Waiting operations then still run, unless the maximum is zero.
///
/// Threads are started on demand. An idle thread waits for further operations until the queue is
/// destroyed or cancelAllOperations() is called. If a thread cannot be started, no member throws:
/// the operation waits for the next call of any member, the destructor included, or for a thread
/// that becomes free.
class NSOperationQueue {
 public:
  /// Creates an empty queue with a maximum of one operation per processor.
  NSOperationQueue();
  ~NSOperationQueue();
  NSOperationQueue(const NSOperationQueue&) = delete;
  NSOperationQueue& operator=(const NSOperationQueue&) = delete;

  /// Sets the maximum number of operations that run at once. With zero, no operation begins. A
  /// negative count means one per processor, the default.
  void setMaxConcurrentOperationCount(std::int64_t count);

  /// Adds an operation, which must not be null and belongs to this queue only. Throws
  /// std::bad_alloc if memory is short; the queue is then unchanged.
  void addOperation(std::shared_ptr<NSOperation> operation);

  /// Calls cancel() on all waiting and running operations. They remain on the queue and finish on
  /// their own. From then on, a thread ends as soon as no operation waits. Operations that are
  /// added later start a new thread if no thread is free.
  void cancelAllOperations();

 private:
  class State;

  const std::shared_ptr<State> state_;  // shared with the threads, which may outlive the queue
};

}  // namespace tarnwick
