#include "Tarnwick/Platform/NSThread.hpp"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#if defined(__linux__)
#include <sys/prctl.h>
#include <unistd.h>
#endif

#include <cmath>
#include <thread>
#include <utility>

namespace tarnwick {
namespace {

constexpr double ordinaryPriority = 0.5;

}  // namespace

void NSThread::detachNewThread(std::function<void()> body) {
  std::thread([body = std::move(body)] {
    setThreadPriority(ordinaryPriority);
    body();
  }).detach();
}

void NSThread::setThreadPriority(double priority) noexcept {
#if defined(__linux__)
  // Under Linux's default policy, a thread's priority is its nice value, from -20 (highest) to 19.
  // The kernel clamps it. A priority step of 0.01 is one nice value, counted from that of the main
  // thread, which is the process's own. Each thread has its own nice value ("C library/kernel
  // differences" in setpriority(2)).
  const auto step = static_cast<int>(std::lround((ordinaryPriority - priority) * 100));
  const int processNice = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
  setpriority(PRIO_PROCESS, 0, processNice + step);
  // By default, the kernel ends a sleep up to 50 microseconds late, to end several sleeps together.
  // A thread of higher priority wakes on time (PR_SET_TIMERSLACK in prctl(2), in nanoseconds).
  prctl(PR_SET_TIMERSLACK, step < 0 ? 1UL : 50'000UL);
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
