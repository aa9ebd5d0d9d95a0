#pragma once

#include <chrono>
#include <string>

namespace tarnwick {

/// Logs `line`: hands it to the log's own thread, which writes it and a newline on standard output.
/// Any thread may call it, and no caller ever waits for standard output.
///
/// Lines are written whole and in the order of the calls. They do not pass through stdio, so their
/// order relative to text that the application has buffered in `stdout` is unspecified. Up to 1 MB
/// of lines waits; while that much waits, further lines are dropped. A failing standard output is
/// ignored, a closed pipe included, and so is a lack of memory.
///
/// Lines that wait are written before std::exit() and a fatal error end the process. A signal,
/// _exit() or std::abort() may lose the lines of the last milliseconds. In a child of fork() and
/// where no thread can be started, the calling thread writes the line.
void logLine(std::string line) noexcept;

/// Waits until the lines logged so far have been written. Gives up and returns false once nothing
/// has been written for `patience`.
bool flushLog(std::chrono::milliseconds patience = std::chrono::seconds(1));

}  // namespace tarnwick
