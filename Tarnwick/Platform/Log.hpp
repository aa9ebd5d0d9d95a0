#pragma once

#include <chrono>
#include <string>

namespace tarnwick {

/// Logs `line`: passes it to the log's thread, which writes it and a newline to standard output.
/// Any thread may call it. The caller does not wait for standard output, with two exceptions. While
/// std::exit() runs, it waits until the line is written. In a child of fork(), and if the log's
/// thread cannot be started, it writes the line itself.
///
/// Lines are written in the order of the calls. They bypass stdio, so their order relative to text
/// in the buffer of `stdout` is unspecified. At most 1 MB of lines waits; a line that exceeds it is
/// dropped. Write errors are ignored, a closed pipe included. If memory is short, the line is lost.
///
/// Before std::exit() or a fatal error ends the process, the waiting lines are written, unless the
/// output is blocked for a second. A signal, _exit() or std::abort() loses the waiting lines.
void logLine(std::string line) noexcept;

/// Waits until the lines logged so far have been written. Returns false if nothing is written for
/// `patience`.
bool flushLog(std::chrono::milliseconds patience = std::chrono::seconds(1));

}  // namespace tarnwick
