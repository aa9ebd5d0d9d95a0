// Plays a script of calls on each frame buffer: a size, then one action per byte. The result must
// equal that of a string of the announced size.
#include <Tarnwick/Tarnwick.hpp>
#include <span>

using namespace tarnwick;

void play(auto frame, std::int64_t size, std::span<const std::uint8_t> actions) {
  constexpr std::uint8_t merge = 0xFF, longestChunk = 0x7F;
  std::string collected;
  std::optional<std::string> merged;
  bool isFull = false, isCorrupt = false;
  for (std::size_t offset = 0; const std::uint8_t action : actions) {
    if (action == merge) {
      if (size < 0) return;  // merging stops the process, by design
      frame.mergeChunks();
      merged = std::exchange(collected, {});
      merged->resize(static_cast<std::size_t>(size));
    } else {
      const std::string chunk(action & longestChunk, static_cast<char>(action));
      frame.appendChunk(bytes(chunk));
      const bool fits = std::ssize(chunk) + static_cast<std::int64_t>(offset) <= size;
      if (fits) collected += chunk, offset += chunk.size();
      isCorrupt |= !fits;
      isFull |= fits && static_cast<std::int64_t>(offset) == size;
    }
    const bool isThere = merged && static_cast<std::int64_t>(offset) == size;
    const auto expected = isThere ? std::optional(bytes(*merged)) : std::nullopt;
    if (frame.isFull != isFull || frame.isCorrupt != isCorrupt) std::abort();
    if (frame.getData() != expected) std::abort();
  }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t length) {
  if (length < 2) return 0;
  const std::int64_t size = static_cast<std::int16_t>(input[0] | input[1] << 8);
  const std::span actions(input + 2, length - 2);
  play(RxVideoFrame(1, size), size, actions);
  play(RxImageFrame(size), size, actions);
  play(RxAudioFrame(1, size), size, actions);
  return 0;
}
