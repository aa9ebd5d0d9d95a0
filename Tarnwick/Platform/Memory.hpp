#pragma once

#include <new>

namespace tarnwick {

/// Runs `body` and returns early if memory is short. A thread of the framework then loses the work
/// in progress, such as one datagram or one log line, and continues.
template <typename Body>
void ifMemoryAllows(Body body) try {
  body();
} catch (const std::bad_alloc&) {
  return;
}

}  // namespace tarnwick
