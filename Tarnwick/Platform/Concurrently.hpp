#pragma once

#include <cstddef>
#include <functional>

namespace tarnwick {

/// Calls `body(0)` on the calling thread and `body(1)` to `body(count - 1)` on a new thread each.
/// If a thread cannot be started, its call runs on the calling thread. Returns when all calls have
/// ended, and rethrows the exception of the first one that threw. Any thread may call it.
void concurrently(std::size_t count, const std::function<void(std::size_t)>& body);

/// The number of processors, at least 1.
[[nodiscard]] std::size_t processorCount() noexcept;

}  // namespace tarnwick
