#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

// Replaces operators new and delete, so only one source file of a program may include it.

namespace tarnwick::test {

/// The number of allocations, on any thread, before one that fails. Below 0, no allocation fails.
inline std::atomic<std::int64_t> allocationsUntilFailure = -1;

/// Allocations of this many bytes or more fail.
inline std::atomic<std::size_t> refusedSize = SIZE_MAX;

/// Whether allocations of the calling thread succeed.
inline thread_local bool isMemoryLeft = true;

inline std::atomic<int> failedAllocations = 0;

/// No thread can be started during its lifetime: the default stack exceeds the address space.
class ThreadShortage {
 public:
  ThreadShortage() {
    pthread_attr_t huge;
    for (pthread_attr_t* attributes : {&usual_, &huge}) pthread_getattr_default_np(attributes);
    pthread_attr_setstacksize(&huge, std::size_t{1} << 50);
    pthread_setattr_default_np(&huge);
  }
  ~ThreadShortage() { pthread_setattr_default_np(&usual_); }
  ThreadShortage(const ThreadShortage&) = delete;
  ThreadShortage& operator=(const ThreadShortage&) = delete;

 private:
  pthread_attr_t usual_{};
};

}  // namespace tarnwick::test

// NOLINTBEGIN(misc-definitions-in-headers): included once. They are not inlined, because g++ would
// report malloc() and delete as a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  using namespace tarnwick::test;
  const bool fails = !isMemoryLeft || size >= refusedSize || allocationsUntilFailure-- == 0;
  void* const memory = fails ? nullptr : std::malloc(size);
  if (memory != nullptr) return memory;
  ++failedAllocations;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
// NOLINTEND(misc-definitions-in-headers)
