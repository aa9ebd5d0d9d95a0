// What the programs here have in common: how they give advice, log, end and show what they do.
#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <functional>
#include <string>

#include "Program/Trouble.hpp"

namespace program {

/// The longest datagram that an endpoint takes, in bytes.
inline constexpr std::int64_t longestDatagram = 65500;

/// What to do about an endpoint that cannot be created.
std::string adviceOn(const tarnwick::UDPError& error, std::uint16_t port);

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
