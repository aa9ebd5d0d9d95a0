// Sends objects over wires with faults: wire [OBJECTS PER KIND AND FAULT], 100 by default. Fails if
// the objects that arrive differ from the forwarded ones, or if the process grows.
#include <iomanip>
#include <iostream>

#include "Session.hpp"

using namespace tarnwick::test;

int main(int argc, char** argv) {
  const std::int64_t count = argc > 1 ? std::atoll(argv[1]) : 100;
  const std::pair<const char*, Faults> rows[]{
      {"no fault", {}},
      {"1 % lost", {.lost = 0.01}},
      {"10 % lost", {.lost = 0.1}},
      {"5 % repeated", {.repeated = 0.05}},
      {"5 % swapped", {.swapped = 0.05}},
      {"1 % of each", {.01, .01, .01, .01, .01, .01}},
      {"all of it", {.1, .05, .05, .05, .05, .05}},
  };
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;  // the framework's log
  MainThread mainThread;
  std::cerr << std::fixed << std::setprecision(1);
  bool isRight = true;
  const auto run = [&](const char* kind, auto sessionOf, const char* name, const Faults& faults) {
    Counts counts = sessionOf(count, faults);
    // A busy system may drop datagrams: then the expected objects are unknown. Try again.
    for (int i = 0; i < 3 && counts.dropped > 0; ++i) counts = sessionOf(count, faults);
    const auto percent = [&](std::int64_t number) {
      return 100 * static_cast<double>(number) / static_cast<double>(counts.sent);
    };
    std::cerr << kind << ", " << name << ": " << counts.sent << " sent, " << percent(counts.whole)
              << " % whole, " << percent(counts.altered) << " % altered, " << counts.dropped
              << " datagrams dropped by the system" << (counts.isRight ? "\n" : ", WRONG\n");
    isRight = isRight && counts.isRight;
  };
  std::optional<Holdings> before;
  for (const auto& [name, faults] : rows) {
    run("image", session<tarnwick::RxImageUDP>, name, faults);
    run("video", session<tarnwick::RxVideoUDP>, name, faults);
    run("audio", session<tarnwick::RxAudioUDP>, name, faults);
    if (!before) before = holdings();
  }
  const bool isClean = eventually([&] { return !holdings().exceed(*before); });
  std::cerr << "It held " << before->text() << " after the first three, and now "
            << holdings().text() << "\n";
  return isRight && isClean ? 0 : 1;
}
