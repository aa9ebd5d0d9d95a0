#include "Tarnwick/Platform/FatalError.hpp"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Tarnwick/Platform/Log.hpp"

namespace tarnwick {

void fatalError(std::string_view text) noexcept {
  // One write for the whole line, so that no other thread's output splits it.
  const std::string line = "Fatal error: " + std::string(text) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
  if (flushLog()) std::fflush(stdout);  // otherwise it is blocked, and fflush() would block too
  std::abort();
}

}  // namespace tarnwick
