// Shares the screen of an X11 display with a peer that runs screenview.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <string>

#include "Program/Arguments.hpp"
#include "Program/Program.hpp"
#include "Screenshare/Sharer.hpp"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using screenshare::Options, screenshare::Sharer, screenshare::Totals;

void describe(CLI::App& arguments, Options& options) {
  arguments.add_option("ADDRESS", options.address, "The IPv4 address of the peer")
      ->required()
      ->check(program::isAddress());
  arguments.add_option("--port", options.port, "The port that the peer listens on")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  arguments
      .add_option(
          "--chunk", options.chunk,
          "The longest datagram, in bytes. At most 1,000 datagrams leave a second, of which "
          "every second one carries a picture. 1400 carries up to 0.7 MB/s and crosses any "
          "network whole; 16000 carries up to 8 MB/s, of which 1.4 to 2.6 were seen in use, "
          "in 11 fragments on a wire, of which none may be lost; 65500 goes in 45 fragments, "
          "and three such datagrams fill the receiver's buffer")
      ->check(CLI::Range(std::int64_t{1000}, program::longestDatagram))
      ->capture_default_str();
  arguments.add_option("--fps", options.frameRate, "How often to look for changes, a second")
      ->check(program::between(1.0, 240.0))
      ->capture_default_str();
  arguments.add_option("--refresh", options.refresh, "Seconds from one whole screen to the next")
      ->check(program::between(0.5, 3600.0))
      ->capture_default_str();
  arguments
      .add_option("--compression", options.compression,
                  "From 0, the smallest files, to 1, the best pictures")
      ->check(program::between(0.0, 1.0))
      ->capture_default_str();
  arguments.add_option("--scale", options.scale, "The size that the screen is sent at")
      ->check(program::between(0.05, 1.0))
      ->capture_default_str();
  arguments
      .add_option("--bandwidth", options.bandwidth,
                  "Megabits a second that the network carries: less for a slow one")
      ->check(program::between(1, 10'000.0))
      ->capture_default_str();
  arguments.add_option("--display", options.display, "The X11 display; else that of DISPLAY");
}

/// The totals and the time at which they were read.
struct Reading {
  Totals totals;
  Clock::time_point time = Clock::now();
  std::clock_t processor = std::clock();
};

/// Formats the rates between two readings, the time to encode a frame, and the CPU load.
std::string difference(const Reading& now, const Reading& then) {
  const std::chrono::duration<double> elapsed = now.time - then.time;
  const auto perSecond = [&](std::int64_t Totals::*count) {
    return static_cast<double>(now.totals.*count - then.totals.*count) / elapsed.count();
  };
  const auto frames =
      static_cast<double>(std::max<std::int64_t>(1, now.totals.frames - then.totals.frames));
  const std::chrono::duration<double, std::milli> encoding =
      now.totals.encoding - then.totals.encoding;
  const double processor = static_cast<double>(now.processor - then.processor) / CLOCKS_PER_SEC;
  std::ostringstream text;
  text << std::fixed << std::setprecision(0) << perSecond(&Totals::frames) << " frames, "
       << perSecond(&Totals::pictures) << " rectangles, " << perSecond(&Totals::datagrams)
       << " datagrams, " << std::setprecision(2) << perSecond(&Totals::bytes) / 1e6
       << " MB/s; encoding " << std::setprecision(1) << encoding.count() / frames << " ms, CPU "
       << std::setprecision(0) << 100 * processor / elapsed.count() << " %";
  return text.str();
}

/// Shares until an interrupt. Shows the rates of each second in the status line.
void share(Sharer& sharer, double frameRate) {
  const auto period =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / frameRate));
  Reading shown;
  Clock::time_point frame = shown.time;
  while (!program::isInterrupted()) {
    frame = std::max(frame + period, Clock::now());
    sharer.runFrame(frame);
    if (Clock::now() - shown.time < 1s) continue;
    const Reading now{.totals = sharer.totals()};
    if (program::hasStatusLine()) program::showStatus(difference(now, shown));
    shown = now;
  }
}

int shareScreen(const Options& options) {
  program::keepLogOffTerminal();
  program::catchInterrupts();
  Sharer sharer(options);
  sharer.beginOperation();
  try {
    share(sharer, options.frameRate);
  } catch (...) {
    if (program::hasStatusLine()) program::showStatus("");
    sharer.endOperation();
    throw;
  }
  sharer.endOperation();
  if (program::hasStatusLine()) program::showStatus("");
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  constexpr auto description =
      "Shares the screen of an X11 display: the whole at first and from time to time, and in "
      "between\nwhat changes. The peer shows it with screenview. Ctrl-C ends it, which takes two "
      "seconds.";
  return program::run("screenshare", description, argc, argv, describe, shareScreen);
}
