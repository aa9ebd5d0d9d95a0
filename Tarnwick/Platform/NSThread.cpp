#include "Tarnwick/Platform/NSThread.hpp"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#if defined(__linux__)
#include <sys/prctl.h>
#endif

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

namespace tarnwick {

void NSThread::detachNewThread(std::function<void()> body) {
  std::thread(std::move(body)).detach();
}

void NSThread::setThreadPriority(double priority) noexcept {
#if defined(__linux__)
  // Under Linux's default policy a thread's priority is its nice value, from -20, which gets the
  // most, to 19: a hundredth of the scale is one step, and the middle is where every thread begins.
  // It is the calling thread's own (setpriority(2), "C library/kernel differences").
  const auto nice = static_cast<int>(std::lround((0.5 - priority) * 100));
  setpriority(PRIO_PROCESS, 0, std::clamp(nice, -20, 19));
  // The kernel ends a sleep up to 50 microseconds late, to end several at once; who is more urgent
  // than others is woken in time (PR_SET_TIMERSLACK in prctl(2), in nanoseconds).
  if (nice < 0) prctl(PR_SET_TIMERSLACK, 1UL);
#else
  int policy = 0;
  sched_param parameters{};
  if (pthread_getschedparam(pthread_self(), &policy, &parameters) != 0) return;
  const int least = sched_get_priority_min(policy);
  const int most = sched_get_priority_max(policy);
  parameters.sched_priority = least + static_cast<int>(priority * (most - least));
  pthread_setschedparam(pthread_self(), policy, &parameters);
#endif
}

void NSThread::sleep(std::chrono::microseconds duration) { std::this_thread::sleep_for(duration); }

}  // namespace tarnwick
