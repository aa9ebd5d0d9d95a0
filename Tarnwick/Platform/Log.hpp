#pragma once

#include <string>

namespace tarnwick {

/// Writes `line` and a newline on standard output as one piece, and flushes. Any thread may call
/// it; lines of two threads are never mixed. A failing standard output is ignored.
void logLine(std::string line);

}  // namespace tarnwick
