#include <gtest/gtest.h>

#include "Tarnwick/Platform/Log.hpp"
#include "Tests/Stream.hpp"

namespace tarnwick::test {
namespace {

// What any script of calls leads to: see Fuzzing/FuzzFrames.cpp.

/// Size and chunks; whether the buffer is then full, whether corrupt, and what it merges to.
using Case = std::tuple<std::int64_t, std::vector<Data>, bool, bool, std::optional<Data>>;
const std::vector<Case> cases{
    {2, {}, false, false, {}},
    {3, {{1, 2}}, false, false, {}},
    {3, {{1, 2}, {3}}, true, false, {{1, 2, 3}}},
    {3, {{1, 2}, {3, 4}}, false, true, {}},               // the second one is dropped
    {3, {{1, 2}, {3, 4}, {5}}, true, true, {{1, 2, 5}}},  // and the third one fits
    {2, {{1, 2}, {3}}, true, true, {{1, 2}}},
    {2, {{1, 2}, {}}, true, false, {{1, 2}}},
    {0, {}, false, false, {Data()}},
    {0, {{}}, true, false, {Data()}},
};

void expectCases(const std::string& name, auto bufferOf) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(bufferOf(-1).mergeChunks(), "Fatal error: Arithmetic overflow\n");
  Output output;
  std::vector<std::string> lines;
  for (const auto& [size, chunks, isFull, isCorrupt, merged] : cases) {
    SCOPED_TRACE(testing::PrintToString(size) + testing::PrintToString(chunks));
    auto frame = bufferOf(size);
    for (const Data& chunk : chunks) frame.appendChunk(chunk);
    EXPECT_TRUE(frame.isFull == isFull && frame.isCorrupt == isCorrupt);
    EXPECT_EQ(frame.getData(), std::nullopt);  // not merged yet
    frame.mergeChunks();
    EXPECT_EQ(frame.getData(), merged);
    EXPECT_EQ(frame.getData(), merged);  // a copy
    frame.mergeChunks();                 // the chunks are gone: zeros
    EXPECT_EQ(frame.getData(), merged ? std::optional(Data(merged->size())) : std::nullopt);
    if (isCorrupt) lines.push_back("Append chunk overflow - (" + name + ")");
  }
  logLine("end");
  lines.emplace_back("end");
  EXPECT_TRUE(output.awaitLine("end"));
  EXPECT_EQ(output.lines(), lines);
}

TEST(Buffers, CollectAndMergeChunks) {
  expectCases("RxVideoFrame", [](auto size) { return RxVideoFrame(7, size); });
  expectCases("RxImageFrame", [](auto size) { return RxImageFrame(size); });
  expectCases("RxAudioFrame", [](auto size) { return RxAudioFrame(7, size); });
}

// --- The operations that take a buffer's bytes out ---

template <typename Frame>
std::shared_ptr<Frame> filled(Frame frame, const Data& data) {
  frame.appendChunk(data);
  return std::make_shared<Frame>(std::move(frame));
}

TEST(ReceiveOperations, GiveTheBytesWithTheirNumber) {
  const Data whole{1, 2, 3}, incomplete{1, 2};
  for (const auto& [data, isCancelled] :
       {std::pair(whole, false), {whole, true}, {incomplete, false}}) {
    const bool isWhole = data == whole && !isCancelled;
    const auto expected = isWhole ? std::optional(data) : std::nullopt;
    RxStreamVideoOperation video(filled(RxVideoFrame(7, 3), data));
    EXPECT_TRUE(announcesStates(video, isCancelled));
    EXPECT_TRUE(video.data == expected && video.frameID == (isCancelled ? 0 : 7));
    RxStreamAudioOperation audio(filled(RxAudioFrame(-7, 3), data));
    EXPECT_TRUE(announcesStates(audio, isCancelled));
    EXPECT_TRUE(audio.data == expected && audio.recorded == (isCancelled ? 0 : -7));
  }
}

TEST(ReceiveOperations, GiveAnImageWithItsBounds) {
  const CGRect bounds{{1, 2}, {3, 4}};
  const Data file = *NSImage::create({3, 4})->pngRepresentation();
  const auto expect = [&](std::int64_t size, const Data& data, bool isCancelled, bool hasImage,
                          bool hasBounds) {
    RxStreamImageOperation operation(filled(RxImageFrame(size, bounds), data));
    EXPECT_TRUE(announcesStates(operation, isCancelled));
    EXPECT_EQ(operation.image != nullptr, hasImage);
    EXPECT_EQ(operation.bounds, hasBounds ? std::optional(bounds) : std::nullopt);
  };
  expect(std::ssize(file), file, false, true, true);
  expect(std::ssize(file), file, true, false, false);
  expect(3, {1, 2, 3}, false, false, true);                 // complete, but no image
  expect(std::ssize(file) + 1, file, false, false, false);  // incomplete
}

}  // namespace
}  // namespace tarnwick::test
