// What the receive path costs, each figure beside the least that its work could cost.
#include <benchmark/benchmark.h>

#include <Tarnwick/Tarnwick.hpp>
#include <cstring>

namespace {

using namespace tarnwick;

constexpr std::size_t largestDatagram = 65500;

/// A frame received in datagrams, merged and taken out; its bytes come as if from the network.
void takeFrame(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const Data chunk(largestDatagram, 0x5A);
  for (auto _ : state) {
    RxVideoFrame frame(1, static_cast<std::int64_t>(size));
    for (std::size_t rest = size; rest > 0;) {
      const std::size_t length = std::min(rest, chunk.size());
      frame.appendChunk(Data(chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(length)));
      rest -= length;
    }
    frame.mergeChunks();
    benchmark::DoNotOptimize(frame.getData());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
}
BENCHMARK(takeFrame)->Arg(400'000)->Arg(8'000'000);

/// The same bytes copied three times, into memory that is there: out of the socket's buffer, into
/// the merged block, and out of it.
void takeFrameReference(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const Data source(size, 0x5A);
  Data first(size), second(size), third(size);
  for (auto _ : state) {
    std::memcpy(first.data(), source.data(), size);
    std::memcpy(second.data(), first.data(), size);
    std::memcpy(third.data(), second.data(), size);
    benchmark::DoNotOptimize(third.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
}
BENCHMARK(takeFrameReference)->Arg(400'000)->Arg(8'000'000);

Data jpegPiece() {
  Data data(largestDatagram, 'a');
  data[1] = 0xFF;
  return data;
}
Data silence() {
  Data data(largestDatagram);
  return data;
}

template <typename Receiver>
void classify(benchmark::State& state, Data datagram) {
  for (auto _ : state) {
    RxMessage message = Receiver::classify(std::move(datagram));
    benchmark::DoNotOptimize(message);
    datagram = std::move(*message.payload);
  }
}

void classifyPieceOfJPEG(benchmark::State& state) { classify<RxImageUDP>(state, jpegPiece()); }
BENCHMARK(classifyPieceOfJPEG);

void classifySilence(benchmark::State& state) { classify<RxAudioUDP>(state, silence()); }
BENCHMARK(classifySilence);

void classifyReference(benchmark::State& state) {
  const Data datagram = silence();
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::memchr(datagram.data(), '|', datagram.size()));
  }
}
BENCHMARK(classifyReference);

}  // namespace
