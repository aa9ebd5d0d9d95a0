// What faults of the network do to objects of each kind: wire [OBJECTS], a hundred a row if not
// told otherwise. Fails when anything arrives but what the datagrams that came through amount to.
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
  };
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;  // the framework's log
  MainThread mainThread;
  bool isRight = true;
  std::cerr << std::fixed << std::setprecision(1);
  const auto show = [&](const char* kind, const char* name, const Faults& faults, Counts counts) {
    const auto percent = [&](std::int64_t number) {
      return 100 * static_cast<double>(number) / static_cast<double>(counts.sent);
    };
    const bool isUnharmed = faults == Faults();
    isRight = isRight && counts.isRight && (!isUnharmed || counts.altered == 0);
    std::cerr << kind << ", " << name << ": " << counts.sent << " sent, " << percent(counts.whole)
              << " % whole, " << percent(counts.altered) << " % altered, " << counts.dropped
              << " datagrams dropped by the system" << (counts.isRight ? "\n" : ", WRONG\n");
  };
  const std::int64_t before = holdings().megabytes;
  for (const auto& [name, faults] : rows) {
    show("image", name, faults, session<tarnwick::RxImageUDP>(count, 1400, faults, 1));
    show("video", name, faults, session<tarnwick::RxVideoUDP>(count, 1400, faults, 2));
    show("audio", name, faults, session<tarnwick::RxAudioUDP>(count, 1400, faults, 3));
  }
  std::cerr << before << " MB before, " << holdings().megabytes << " MB after\n";
  return isRight ? 0 : 1;
}
