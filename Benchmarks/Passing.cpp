// Measures how soon an endpoint replies, and how many passes the send thread makes.
#include <Tarnwick/Tarnwick.hpp>

#include <atomic>
#include <chrono>
#include <thread>

#include "Comparison.hpp"
#include "Sockets.hpp"

namespace tarnwick::benchmarks {
namespace {

void ask(benchmark::State& state, const Talker& talker) {
  const Data question = bytes("start");
  for (auto _ : state) {
    talker.say(question);
    talker.awaitAnswer();
  }
}

void askReceiver(benchmark::State& state) {
  const std::uint16_t port = freePort();
  const auto receiver = RxVideoUDP::create("receiver", port, 65500, nullptr);
  receiver->beginOperation();
  ask(state, Talker(port));
  receiver->endOperation();
}

/// The reference: a loop that only receives, without pause, and replies.
void askEcho(benchmark::State& state) {
  Listener listener;
  listener.setNonBlocking();
  std::atomic<bool> isRunning = true;
  std::thread echo([&] {
    const Data answer = bytes("video|started");
    Data buffer(65500);
    while (isRunning) {
      if (listener.receive(buffer) != -1) listener.answer(answer);
    }
  });
  ask(state, Talker(listener.port()));
  isRunning = false;
  echo.join();
}

/// Measures the time from the first to the last datagram of messages that were queued together.
void pass(benchmark::State& state) {
  constexpr int count = 90;  // within the queue's limit of 100
  Listener listener;
  Data buffer(1);
  const auto client = UDPClient::create("client", "127.0.0.1", listener.port());
  client->beginOperation();
  for (auto _ : state) {
    for (int i = 0; i < count; ++i) client->send("message");
    listener.receive(buffer);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 1; i < count; ++i) listener.receive(buffer);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(time.count());
  }
  client->endOperation();
}

}  // namespace

void addPassing() {
  compare(R"("start" to "video|started", a spinning client)", {2}, askReceiver, askEcho);
  compare(
      "89 passes of the send thread, beside as many milliseconds", {1 / 0.97}, pass,
      [](benchmark::State& state) {
        for (auto _ : state) state.SetIterationTime(89e-3);
      },
      Clock::own);
}

}  // namespace tarnwick::benchmarks
