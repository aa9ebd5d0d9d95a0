#pragma once

#include <cstddef>
#include <functional>

namespace tarnwick {

/// Runs `body(0)` to `body(count - 1)` on threads of their own, the first one on the calling
/// thread, and returns when all have ended; where the system grants no thread, on the calling one.
/// Throws then what one of them threw. Any thread may call it.
void concurrently(std::size_t count, const std::function<void(std::size_t)>& body);

/// How many bodies can run at once.
[[nodiscard]] std::size_t processorCount() noexcept;

}  // namespace tarnwick
