// Shared by the programs: advice on errors, the log, interrupts, the main queue, a status line.
#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "Program/Trouble.hpp"

namespace program {

inline constexpr std::int64_t longestDatagram = 65500;  ///< in bytes, the limit of an endpoint

/// Returns advice for the user about an endpoint that could not be created.
std::string adviceOn(const tarnwick::UDPError& error, std::uint16_t port);

/// Discards standard output if it is a terminal: the framework's log would hide the program's own
/// lines on standard error. Redirect standard output to read both.
void keepLogOffTerminal();

/// Makes Ctrl-C and SIGTERM set isInterrupted() instead of ending the process.
void catchInterrupts();
bool isInterrupted();

/// Drains the main queue until `isDone()` returns true or the user interrupts. Waits for the
/// queue's descriptor, as an event loop can. The calling thread calls `isDone()` before each drain,
/// and every 100 ms while the queue is empty. What `isDone()` throws is passed to the caller.
void drainMainQueueUntil(const std::function<bool()>& isDone);

/// Whether standard error is a terminal.
bool hasStatusLine();
/// Rewrites the terminal's last line.
void showStatus(const std::string& text);

}  // namespace program
