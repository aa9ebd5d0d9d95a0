#include "Program/Program.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <iostream>

namespace program {
namespace {

constexpr int patience = 100;  // milliseconds between two checks of isDone() and for interrupts

std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);  // a signal handler sets it

void noteInterrupt(int) { interrupted = true; }

}  // namespace

std::string adviceOn(const tarnwick::UDPError& error, std::uint16_t port) {
  if (error == tarnwick::UDPError::bindSocket) {
    return "port " + std::to_string(port) +
           " is taken, or not yours to take: choose another with --port";
  }
  return error.localizedDescription();
}

void keepLogOffTerminal() {
  if (isatty(STDOUT_FILENO) == 0) return;
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere == -1) return;
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
}

void catchInterrupts() {
  struct sigaction action {};
  action.sa_handler = noteInterrupt;
  for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

bool isInterrupted() { return interrupted; }

void drainMainQueueUntil(const std::function<bool()>& isDone) {
  tarnwick::DispatchQueue& queue = tarnwick::DispatchQueue::main();
  pollfd blocks{.fd = queue.fileDescriptor(), .events = POLLIN, .revents = 0};
  while (!isDone() && !isInterrupted()) {
    if (poll(&blocks, 1, patience) > 0) queue.drain();
  }
}

bool hasStatusLine() { return isatty(STDERR_FILENO) != 0; }

void showStatus(const std::string& text) {
  constexpr auto eraseRest = "\033[K";  // ECMA-48, EL
  constexpr std::size_t width = 79;     // in columns: a terminal would wrap a longer line
  std::cerr << '\r' << text.substr(0, width) << eraseRest << std::flush;
}

}  // namespace program
