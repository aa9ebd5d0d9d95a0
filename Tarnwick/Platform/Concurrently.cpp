#include "Tarnwick/Platform/Concurrently.hpp"

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

namespace tarnwick {

void concurrently(std::size_t count, const std::function<void(std::size_t)>& body) {
  std::vector<std::jthread> threads;
  threads.reserve(count);
  for (std::size_t i = 1; i < count; ++i) {
    try {
      threads.emplace_back([&body, i] { body(i); });
    } catch (const std::system_error&) {
      body(i);
    }
  }
  if (count > 0) body(0);
}

std::size_t processorCount() noexcept {
  return std::max<std::size_t>(std::thread::hardware_concurrency(), 1);
}

}  // namespace tarnwick
