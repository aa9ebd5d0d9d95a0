#include "Tarnwick/Platform/Log.hpp"

#include <cstdio>

namespace tarnwick {

void logLine(std::string line) {
  line += '\n';
  // The stream's own lock, which every writer of standard output takes, covers one whole fwrite.
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
}

}  // namespace tarnwick
