#pragma once

#include <new>

namespace tarnwick {

/// Runs `body` and abandons it if it runs out of memory. On a thread of ours this costs what was
/// under way, such as one datagram or one log line; the thread itself goes on.
template <typename Body>
void ifMemoryAllows(Body body) try {
  body();
} catch (const std::bad_alloc&) {
  return;
}

}  // namespace tarnwick
