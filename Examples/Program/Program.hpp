// What the programs here have in common: how they read their arguments, complain and end.
#pragma once

#include <CLI/CLI.hpp>
#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>

#include "Program/Trouble.hpp"

namespace program {

/// The longest datagram that an endpoint takes, in bytes.
inline constexpr std::int64_t longestDatagram = 65500;

/// Shows the help that was asked for, or says what is wrong with the arguments, or with the rest.
/// Returns the exit status.
int endEarly(const CLI::App& arguments, const CLI::ParseError& end);
int complain(const char* name, const std::exception& error) noexcept;

/// Reads the arguments that `describe` adds and runs `body`. What goes wrong is said in one line on
/// standard error. Returns the exit status: what `body` returns, 1 when it throws, 2 for wrong
/// arguments.
template <typename Options>
int run(const char* name, const char* description, int argc, char** argv,
        void (*describe)(CLI::App& arguments, Options& options),
        int (*body)(const Options& options)) noexcept {
  try {
    Options options;
    CLI::App arguments(description, name);
    describe(arguments, options);
    try {
      arguments.parse(argc, argv);
    } catch (const CLI::ParseError& end) {
      return endEarly(arguments, end);
    }
    return body(options);
  } catch (const std::exception& error) {
    return complain(name, error);
  }
}

/// What to do about an endpoint that cannot be created.
std::string adviceOn(const tarnwick::UDPError& error, const std::string& address,
                     std::uint16_t port);

/// The framework logs on standard output. Where that is a terminal the log is dropped, so that what
/// the program itself says on standard error can be read; redirect standard output to have both.
void keepLogOffTerminal();

/// From now on Ctrl-C and SIGTERM are noted, and nothing more.
void catchInterrupts();
bool isInterrupted();

/// Hands complete objects over until `isDone()` or an interrupt: what an application does whose
/// event loop can wait for a descriptor. It asks `isDone()` several times a second.
void drainMainQueueUntil(const std::function<bool()>& isDone);

/// Whether somebody watches standard error, and rewrites a line of it in place.
bool hasStatusLine();
void showStatus(const std::string& text);

}  // namespace program
