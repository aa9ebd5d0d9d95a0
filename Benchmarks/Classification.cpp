// Measures the classification of a datagram against one pass over its bytes.
#include <Tarnwick/Tarnwick.hpp>
#include <cstring>

#include "Comparison.hpp"

namespace tarnwick::benchmarks {

void addClassification() {
  constexpr std::size_t size = 65500;
  Data picture(size, 'a'), silence(size, 0), separators(size, 'a');
  picture[1] = 0xFF;
  for (std::size_t i = 2; i < size; i += 3) separators[i] = '|';
  const auto classify = [](const Data& bytes) {
    return [datagram = bytes](benchmark::State& state) mutable {
      for (auto _ : state) {
        RxMessage message = RxAudioUDP::classify(std::move(datagram));
        benchmark::DoNotOptimize(message);
        datagram = std::move(*message.payload);
      }
    };
  };
  const auto look = [silence](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(std::memchr(silence.data(), '|', silence.size()));
  };
  compare("classification of 65,500 bytes of a JPEG file", {.nanoseconds = 100}, classify(picture),
          look);
  compare("classification of 65,500 bytes of silence", {10}, classify(silence), look);
  compare("classification of 65,500 bytes with 21,833 separators", {.nanoseconds = 900'000},
          classify(separators), look);
}

}  // namespace tarnwick::benchmarks
