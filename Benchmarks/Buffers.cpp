// Measures collecting, merging and returning an object against the two copies that this requires.
#include <Tarnwick/Tarnwick.hpp>
#include <cstring>

#include "Comparison.hpp"
#include "Tarnwick/Platform/DataStore.hpp"

namespace tarnwick::benchmarks {

void addBuffers() {
  constexpr std::size_t largestDatagram = 65500;
  for (const std::size_t size : {std::size_t{400'000}, std::size_t{8'000'000}}) {
    std::vector<Data> chunks;
    for (std::size_t start = 0; start < size; start += largestDatagram) {
      chunks.emplace_back(std::min(largestDatagram, size - start), std::uint8_t{0x5A});
    }
    const auto ours = [size, chunks](benchmark::State& state) {
      for (auto _ : state) {
        state.PauseTiming();
        std::vector<Data> arriving;  // in recycled buffers, as an endpoint delivers them
        arriving.reserve(chunks.size());
        for (const Data& chunk : chunks) arriving.push_back(DataStore::shared().copy(chunk));
        state.ResumeTiming();
        RxVideoFrame frame(1, static_cast<std::int64_t>(size));
        for (Data& chunk : arriving) frame.appendChunk(std::move(chunk));
        frame.mergeChunks();
        std::optional<Data> data = frame.getData();
        benchmark::DoNotOptimize(data);
      }
    };
    const auto reference = [size, chunks](benchmark::State& state) {
      Data merged(size), taken(size);
      for (auto _ : state) {
        std::size_t end = 0;
        for (const Data& chunk : chunks) {
          std::memcpy(merged.data() + end, chunk.data(), chunk.size());
          end += chunk.size();
        }
        std::memcpy(taken.data(), merged.data(), size);
        benchmark::DoNotOptimize(taken.data());
        benchmark::ClobberMemory();
      }
    };
    compare("object of " + std::to_string(size / 1000) + " kB appended, merged, taken out", {1.2},
            ours, reference);
  }
}

}  // namespace tarnwick::benchmarks
