// Measures the receive thread's CPU time and losses against a bare receiving loop, and page faults.
#include <sys/resource.h>
#include <Tarnwick/Tarnwick.hpp>

#include <atomic>
#include <chrono>
#include <ctime>
#include <semaphore>
#include <thread>
#include <vector>

#include "Comparison.hpp"
#include "Sockets.hpp"
#include "Tests/Process.hpp"

namespace tarnwick::benchmarks {
namespace {

constexpr std::size_t objectDatagrams = 24;  // chunks of one object
constexpr std::size_t batch = 240;           // chunks that wait when the measurement starts

double threadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Enlarges the receive buffer to hold a whole batch. Returns false without the privilege for it.
bool enlarge(int socket, benchmark::State& state) {
  const int size = 64 << 20;
  const int refused = setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
  if (refused != 0) state.SkipWithError("needs root, for a large receive buffer");
  return refused == 0;
}

/// Sends a batch of chunks of `size` bytes. Announces each object before its chunks.
void sayBatch(const Talker& talker, std::size_t size) {
  const Data piece(size, 0xFF);
  for (std::size_t i = 0; i < batch; ++i) {
    if (i % objectDatagrams == 0) {
      talker.say(bytes("videoframe|1|x|" + std::to_string(size * objectDatagrams)));
    }
    talker.say(piece);
  }
}

/// Blocks the receive thread in videoStarted() while a batch gathers. Then measures the CPU time of
/// that thread until videoStopped(), which follows the batch.
class Stopwatch final : public RxVideoUDPDelegate {
 public:
  std::binary_semaphore held{0}, released{0}, done{0};
  double seconds = 0;

 private:
  void videoStarted() override {
    held.release();
    released.acquire();
    start_ = threadSeconds();
  }
  void videoStopped() override {
    seconds = threadSeconds() - start_;
    done.release();
  }
  void videoFrameReceived(std::int64_t, Data) override {}

  double start_ = 0;
};

void receive(benchmark::State& state, std::size_t size) {
  const auto stopwatch = std::make_shared<Stopwatch>();
  const std::uint16_t port = freePort();
  const auto receiver = RxVideoUDP::create("receiver", port, 65500, stopwatch);
  int socket = 3;
  while (portOf(socket) != port) ++socket;  // the receiver has no accessor for its socket
  if (!enlarge(socket, state)) return;
  receiver->beginOperation();
  std::jthread mainThread([] { DispatchQueue::main().run(); });
  const Talker talker(port);
  for (auto _ : state) {
    talker.say(bytes("start"));
    stopwatch->held.acquire();
    sayBatch(talker, size);
    talker.say(bytes("stop"));
    stopwatch->released.release();
    stopwatch->done.acquire();
    state.SetIterationTime(stopwatch->seconds);
  }
  receiver->endOperation();
  DispatchQueue::main().stop();
}

void receiveBare(benchmark::State& state, std::size_t size) {
  Listener listener;
  listener.setNonBlocking();
  if (!enlarge(listener.socket(), state)) return;
  const Talker talker(listener.port());
  Data buffer(65500);
  for (auto _ : state) {
    sayBatch(talker, size);
    talker.say({});
    const double start = threadSeconds();
    while (listener.receive(buffer) != 0) continue;
    state.SetIterationTime(threadSeconds() - start);
  }
}

/// Sends 3,000 chunks and sleeps for a millisecond after each.
void sayAtPace(const Talker& talker) {
  const std::string size = std::to_string(objectDatagrams * 65500);
  const Data piece(65500, 0xFF);
  for (std::size_t i = 0; i < 3000; ++i) {
    if (i % objectDatagrams == 0) talker.say(bytes("recorded|1|x|" + size));
    talker.say(piece);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

/// Keeps every processor busy as long as it exists.
class Neighbours {
 public:
  Neighbours() {
    for (unsigned i = 0; i < std::thread::hardware_concurrency(); ++i) {
      threads_.emplace_back([](const std::stop_token& end) {
        while (!end.stop_requested()) continue;
      });
    }
  }

 private:
  std::vector<std::jthread> threads_;
};

class Hearer final : public RxAudioUDPDelegate {
  void audioReceived(std::int64_t, Data) override {}
};

/// Runs `traffic` against an audio receiver that delivers its recordings to a delegate.
void withAudioReceiver(const std::function<void(std::uint16_t port)>& traffic) {
  const std::uint16_t port = freePort();
  const auto receiver = RxAudioUDP::create("receiver", port, 65500, std::make_shared<Hearer>());
  receiver->beginOperation();
  std::jthread mainThread([] { DispatchQueue::main().run(); });
  traffic(port);
  receiver->endOperation();
  DispatchQueue::main().stop();
}

double lose(benchmark::State&) {
  double lost = 0;
  withAudioReceiver([&](std::uint16_t port) {
    const Neighbours neighbours;
    sayAtPace(Talker(port));
    lost = static_cast<double>(test::droppedAt(port));
  });
  return lost;
}

double loseBare(benchmark::State&) {
  Listener listener;
  listener.setNonBlocking();
  std::jthread loop([&](const std::stop_token& end) {
    Data buffer(65500);
    while (!end.stop_requested()) listener.receive(buffer);
  });
  const Neighbours neighbours;
  sayAtPace(Talker(listener.port()));
  return static_cast<double>(test::droppedAt(listener.port()));
}

/// Returns the page faults of the whole process per chunk, delivery of the objects included.
double fault(benchmark::State&) {
  const auto faults = [] {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_minflt);
  };
  double each = 0;
  withAudioReceiver([&](std::uint16_t port) {
    sayAtPace(Talker(port));  // a warm-up, which is not measured
    const double before = faults();
    sayAtPace(Talker(port));
    each = (faults() - before) / 3000;
  });
  return each;
}

}  // namespace

void addReceiving() {
  const std::pair<std::size_t, double> rows[]{{1400, 1.3}, {8192, 1.5}, {65500, 2.5}};
  for (const auto& [size, goal] : rows) {
    compare(
        "receive thread, CPU time, 240 datagrams of " + std::to_string(size) + " bytes", {goal},
        [size = size](benchmark::State& state) { receive(state, size); },
        [size = size](benchmark::State& state) { receiveBare(state, size); }, Clock::own);
  }
  compareFigures("lost of 3,000 datagrams of 65,500 bytes, one a millisecond, all cores busy",
                 Unit::count, {1}, lose, loseBare);
  compareFigures("page faults a datagram of 65,500 bytes, beside one", Unit::count, {3}, fault,
                 [](benchmark::State&) { return 1; });
}

}  // namespace tarnwick::benchmarks
