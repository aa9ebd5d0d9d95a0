#include "Tarnwick/Platform/NSThread.hpp"

#include <pthread.h>
#include <sched.h>

#include <thread>
#include <utility>

namespace tarnwick {

void NSThread::detachNewThread(std::function<void()> body) {
  std::thread(std::move(body)).detach();
}

void NSThread::setThreadPriority(double priority) noexcept {
  int policy = 0;
  sched_param parameters{};
  if (pthread_getschedparam(pthread_self(), &policy, &parameters) != 0) return;
  const int least = sched_get_priority_min(policy);
  const int most = sched_get_priority_max(policy);
  parameters.sched_priority = least + static_cast<int>(priority * (most - least));
  pthread_setschedparam(pthread_self(), policy, &parameters);
}

void NSThread::sleep(std::chrono::microseconds duration) { std::this_thread::sleep_for(duration); }

}  // namespace tarnwick
