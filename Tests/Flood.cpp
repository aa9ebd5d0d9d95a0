// Floods each receiver with datagrams: flood [SECONDS PER RECEIVER], 1 by default. Fails if a
// receiver stops delivering, does not end, or makes the process grow.
#include <iostream>

#include "Session.hpp"

using namespace tarnwick;
using namespace tarnwick::test;

/// Random text, noise and truncated announcements, all of `size` bytes.
template <typename Receiver>
std::vector<Data> rubbish(std::size_t size) {
  std::mt19937 random(static_cast<std::uint32_t>(size));
  std::vector<Data> datagrams;
  while (datagrams.size() < 64) {
    Data text, noise, announced = bytes(announcement<Receiver>(1, 100'000));
    while (text.size() < size) text.push_back(static_cast<std::uint8_t>(' ' + random() % 95));
    while (noise.size() < size) noise.push_back(static_cast<std::uint8_t>(random()));
    announced.resize(1 + random() % announced.size());
    announced.resize(size, '|');
    for (const Data& datagram : {text, noise, announced}) {
      if (!stops<Receiver>(datagram)) datagrams.push_back(datagram);
    }
  }
  return datagrams;
}

/// Sends the datagrams repeatedly until `end`. Returns the number sent.
std::int64_t say(const std::vector<Data>& datagrams, std::uint16_t port,
                 const std::stop_token& end) {
  Peer peer(port);
  std::size_t said = 0;
  while (!end.stop_requested()) peer.sendBytes(datagrams[said++ % datagrams.size()]);
  return static_cast<std::int64_t>(said);
}

template <typename Receiver>
bool withstands(const char* kind, double seconds) {
  constexpr std::size_t sizes[]{1, 64, 1400, 65500};
  const Receiving<Receiver> end;
  end.receiver->beginOperation();
  std::int64_t number = 1;
  const auto delivers = [&] {
    return arrivesAfter<Receiver>(number++, *end.application, end.port).has_value();
  };
  bool isRight = delivers();
  const Holdings before = holdings();
  for (const std::size_t size : sizes) {
    const std::vector<Data> datagrams = rubbish<Receiver>(size);
    std::int64_t said = 0;
    std::jthread flood([&](auto stop) { said = say(datagrams, end.port, stop); });
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds / std::size(sizes)));
    const Holdings during = holdings();
    flood.request_stop();
    flood.join();
    const bool isDelivered = delivers();
    const bool isClean = eventually([&] { return !holdings().exceed(before); });
    isRight = isRight && said > 0 && isDelivered && isClean;
    std::cerr << kind << ", " << size << " bytes: " << said << " datagrams; " << before.megabytes
              << " MB before, " << during.megabytes << " MB during, " << holdings().megabytes
              << " MB after" << (isDelivered ? "" : "; DELIVERS NOTHING")
              << (isClean ? "\n" : "; KEEPS MORE\n");
  }
  const std::vector<Data> datagrams = rubbish<Receiver>(1400);
  const std::jthread flood([&](auto stop) { say(datagrams, end.port, stop); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const auto start = std::chrono::steady_clock::now();
  end.receiver->endOperation();
  const bool isEnded = eventually([&] { return isPortFree(end.port); });
  const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
  std::cerr << kind << ": ended in " << time.count() << " ms\n";
  return isRight && isEnded;
}

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 1;
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;  // the framework's log
  MainThread mainThread;
  const bool video = withstands<RxVideoUDP>("video", seconds);
  const bool image = withstands<RxImageUDP>("image", seconds);
  const bool audio = withstands<RxAudioUDP>("audio", seconds);
  return video && image && audio ? 0 : 1;
}
