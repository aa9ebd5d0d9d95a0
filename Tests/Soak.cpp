// Restarts streams of every kind at random, also over wires with faults: soak [MINUTES], 1 by
// default. Fails if the process grows after the first tenth, or if a stream does not resume.
#include <iomanip>
#include <iostream>

#include "Session.hpp"

using namespace tarnwick;
using namespace tarnwick::test;
using Clock = std::chrono::steady_clock;

std::mt19937 chance(1);
std::int64_t sent = 0, arrived = 0, restarts = 0;

std::size_t below(std::size_t limit) { return chance() % limit; }

/// Runs one source, and receivers in turn on one port. Returns whether the last one delivers.
template <typename Receiver>
bool stream() {
  constexpr std::size_t chunks[]{300, 1400, 16000, 65500};
  const Faults faults = below(2) == 0 ? Faults() : Faults{.02, .02, .02, .02, .02, .02};
  const auto arrivals = std::make_shared<Arrivals>();
  const auto create = [&](std::uint16_t free) {
    auto receiver = Receiver::create("receiver", free, 65500, arrivals);
    receiver->beginOperation();
    return receiver;
  };
  auto [receiver, port] = onFreePort(create);
  FaultyWire<Receiver> wire(port, faults, static_cast<std::uint32_t>(chance()));
  std::atomic<bool> isOver = false;
  std::thread sending([&, chunk = chunks[below(4)], count = 5 + below(40)] {
    Source<Receiver> source(wire.port(), chunk);
    for (std::size_t i = 1; i <= count; ++i) {
      source.send(static_cast<std::int64_t>(i));
      std::this_thread::sleep_for(std::chrono::milliseconds(source.milliseconds()));
    }
    sent += static_cast<std::int64_t>(count);
    isOver = true;
  });
  while (!isOver) {  // also in the middle of an object
    std::this_thread::sleep_for(std::chrono::milliseconds(below(1000)));
    if (below(2) == 0) continue;
    receiver->endOperation();
    eventually([free = port] { return isPortFree(free); });
    receiver = create(port);
    ++restarts;
  }
  sending.join();
  wire.finish();
  const auto objects = arrivesAfter<Receiver>(1000, *arrivals, port);
  receiver->endOperation();
  arrived += objects ? std::ssize(*objects) : 0;
  return objects.has_value();
}

int main(int argc, char** argv) {
  const double minutes = argc > 1 ? std::atof(argv[1]) : 1;
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;  // the framework's log
  MainThread mainThread;
  std::cerr << std::fixed << std::setprecision(1);
  std::optional<Holdings> before;
  const Clock::time_point start = Clock::now();
  const auto passed = [&] {
    return std::chrono::duration<double>(Clock::now() - start).count() / 60;
  };
  for (double said = 0; passed() < minutes;) {
    if (!stream<RxImageUDP>() || !stream<RxVideoUDP>() || !stream<RxAudioUDP>()) {
      std::cerr << "A stream does not come back.\n";
      return 1;
    }
    if (!before && passed() > minutes / 10) before = holdings();
    if (passed() < said + 1 && passed() < minutes) continue;
    said = passed();
    std::cerr << said << " minutes: " << sent << " sent, " << arrived << " arrived, " << restarts
              << " restarts; " << holdings().text() << "\n";
  }
  const bool isEnough = arrived >= sent / 2;  // restarts and faults lose less
  // An ended receiver lives until the process ends, with its incomplete object.
  const std::int64_t allowance = notableGrowth + restarts / 10;
  const bool isClean = eventually([&] { return before && !holdings().exceed(*before, allowance); });
  if (!isEnough) std::cerr << "Too little arrives.\n";
  if (!isClean) std::cerr << "It grew from " << (before ? before->text() : "nothing") << "\n";
  return isEnough && isClean ? 0 : 1;
}
