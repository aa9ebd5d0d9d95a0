#include "Tarnwick/Platform/Concurrently.hpp"

#include <algorithm>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace tarnwick {

void concurrently(std::size_t count, const std::function<void(std::size_t)>& body) {
  std::vector<std::exception_ptr> failures(count);
  const auto run = [&](std::size_t i) noexcept {
    try {
      body(i);
    } catch (...) {
      failures[i] = std::current_exception();
    }
  };
  {
    std::vector<std::jthread> threads;
    threads.reserve(count);
    for (std::size_t i = 1; i < count; ++i) {
      try {
        threads.emplace_back([&run, i] { run(i); });
      } catch (const std::system_error&) {
        run(i);
      }
    }
    if (count > 0) run(0);
  }
  for (const std::exception_ptr& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
}

std::size_t processorCount() noexcept {
  return std::max<std::size_t>(std::thread::hardware_concurrency(), 1);
}

}  // namespace tarnwick
