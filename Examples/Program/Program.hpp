// What the programs here have in common: how they read their arguments, complain and end.
#pragma once

#include <CLI/CLI.hpp>
#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

namespace program {

/// The longest datagram that an endpoint takes, in bytes.
inline constexpr std::int64_t longestDatagram = 65500;

/// Something that the user can mend; the text says how.
struct Trouble : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Reads the arguments and runs `body`. What goes wrong is said in one line on standard error.
/// Returns the exit status: what `body` returns, 1 when it throws, 2 for wrong arguments.
int run(CLI::App& arguments, int argc, char** argv, const std::function<int()>& body);

/// What to do about an endpoint that cannot be created or begun.
Trouble troubleWith(const tarnwick::UDPError& error, const std::string& address,
                    std::uint16_t port);

/// The framework logs on standard output. Where that is a terminal the log is dropped, so that what
/// the program itself says on standard error can be read; redirect standard output to have both.
void keepLogOffTerminal();

/// From now on the first Ctrl-C, or SIGTERM, is noted and nothing more; the second one kills.
void catchInterrupts();
bool isInterrupted();

/// Hands complete objects over until `isDone()` or an interrupt: what an application does whose
/// event loop can wait for a descriptor. It asks `isDone()` several times a second.
void drainMainQueueUntil(const std::function<bool()>& isDone);

/// Whether somebody watches standard error, and rewrites a line of it in place.
bool hasStatusLine();
void showStatus(const std::string& text);

}  // namespace program
