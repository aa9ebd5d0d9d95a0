#include "Tarnwick/Platform/DispatchSemaphore.hpp"

namespace tarnwick {

void DispatchSemaphore::signal() {
  const MutexLock lock(lock_);
  ++count_;
  signalled_.notify_one();  // under the lock: the woken thread may destroy the semaphore
}

bool DispatchSemaphore::wait(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const MutexLock lock(lock_);
  while (count_ == 0) {
    if (signalled_.wait_until(lock_, deadline) == std::cv_status::timeout && count_ == 0) {
      return false;
    }
  }
  --count_;
  return true;
}

}  // namespace tarnwick
