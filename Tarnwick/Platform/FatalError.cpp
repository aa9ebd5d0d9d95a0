#include "Tarnwick/Platform/FatalError.hpp"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tarnwick {

void fatalError(std::string_view text) {
  // One write for the whole line, so that no other thread's output comes between.
  const std::string line = "Fatal error: " + std::string(text) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stdout);
  std::abort();
}

}  // namespace tarnwick
