#include <gtest/gtest.h>

#include <limits>

#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Support.hpp"

namespace tarnwick::test {
namespace {

/// How each class is made with a size, and what it logs, so that one table serves the three alike.
template <typename Frame>
Frame make(std::int64_t size) {
  if constexpr (std::is_same_v<Frame, RxImageFrame>) {
    return Frame(size);
  } else {
    return Frame(7, size);
  }
}

template <typename Frame>
std::string overflowLine() {
  const bool isVideo = std::is_same_v<Frame, RxVideoFrame>;
  const bool isImage = std::is_same_v<Frame, RxImageFrame>;
  const std::string name = isVideo ? "RxVideoFrame" : isImage ? "RxImageFrame" : "RxAudioFrame";
  return "Append chunk overflow - (" + name + ")";
}

template <typename Frame>
struct Buffers : testing::Test {};
using Frames = testing::Types<RxVideoFrame, RxImageFrame, RxAudioFrame>;
TYPED_TEST_SUITE(Buffers, Frames);

struct Step {
  Data chunk;
  bool isFull, isCorrupt;
};

struct Case {
  const char* name;
  std::int64_t size;
  std::vector<Step> steps;
  std::optional<Data> merged;
};

TYPED_TEST(Buffers, CollectAndJoinChunks) {
  const std::vector<Case> cases{
      {"complete", 5, {{{1, 2}, false, false}, {{3, 4, 5}, true, false}}, Data{1, 2, 3, 4, 5}},
      {"one byte too many", 3, {{{1, 2}, false, false}, {{3, 4}, false, true}}, std::nullopt},
      {"fits after a refused chunk",
       3,
       {{{1, 2}, false, false}, {{9, 9}, false, true}, {{3}, true, true}},
       Data{1, 2, 3}},
      {"overflows when full", 2, {{{1, 2}, true, false}, {{3}, true, true}}, Data{1, 2}},
      {"an empty chunk changes nothing",
       1,
       {{{}, false, false}, {{1}, true, false}, {{}, true, false}},
       Data{1}},
      {"nothing announced, nothing sent", 0, {{{}, true, false}}, Data{}},
      {"nothing announced, something sent", 0, {{{1}, false, true}}, Data{}},
      {"a negative size", -1, {{{}, false, true}, {{1}, false, true}}, std::nullopt},
      {"bytes missing", 10, {{{1, 2, 3, 4}, false, false}}, std::nullopt},
      {"more announced than any memory holds",
       std::numeric_limits<std::int64_t>::max(),
       {{{1}, false, false}},
       std::nullopt},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    auto frame = make<TypeParam>(test.size);
    EXPECT_FALSE(frame.isFull || frame.isCorrupt);
    for (const Step& step : test.steps) {
      frame.appendChunk(step.chunk);
      EXPECT_EQ(frame.isFull, step.isFull);
      EXPECT_EQ(frame.isCorrupt, step.isCorrupt);
    }
    EXPECT_EQ(frame.getData(), std::nullopt);
    if (test.size < 0 || test.size > 1000) continue;
    frame.mergeChunks();
    EXPECT_EQ(frame.getData(), test.merged);
    EXPECT_EQ(frame.getData(), test.merged);
    frame.mergeChunks();  // the chunks are gone: zeros are left
    EXPECT_TRUE(!test.merged || frame.getData() == Data(test.merged->size()));
  }
}

TYPED_TEST(Buffers, LogAnOverflowOnce) {
  Output output;
  auto frame = make<TypeParam>(1);
  frame.appendChunk({1, 2});
  frame.appendChunk({1});
  logLine("end");
  EXPECT_TRUE(output.awaitLine("end"));
  EXPECT_EQ(output.lines(), (std::vector<std::string>{overflowLine<TypeParam>(), "end"}));
}

TYPED_TEST(Buffers, StopTheProcessWhenASizeCannotBe) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto frame = make<TypeParam>(-1);
  EXPECT_DEATH(frame.mergeChunks(), "Fatal error: Arithmetic overflow\n");
}

TEST(AudioBuffer, GivesNoDataWithoutANumber) {
  RxAudioFrame recording(0, 1);
  recording.appendChunk({1});
  recording.mergeChunks();
  EXPECT_TRUE(recording.isFull);
  EXPECT_EQ(recording.getData(), std::nullopt);
  recording.recorded = -3;
  EXPECT_EQ(recording.getData(), Data{1});
}

// --- The operations that take a buffer's bytes out ---

/// The keys that an operation announced as changed.
std::vector<std::string> changesOf(NSOperation& operation) {
  std::vector<std::string> changes;
  operation.addObserver([&](const NSOperation&, std::string_view key, NSOperation::Change change) {
    if (change == NSOperation::Change::did) changes.emplace_back(key);
  });
  operation.start();
  return changes;
}

const std::vector<std::string> worked{"isExecuting", "isExecuting", "isFinished"};

template <typename Frame>
std::shared_ptr<Frame> filled(Frame frame, const Data& data) {
  frame.appendChunk(data);
  return std::make_shared<Frame>(std::move(frame));
}

TEST(ReceiveOperations, GiveTheBytesWithTheirNumber) {
  RxStreamVideoOperation video(filled(RxVideoFrame(7, 3), {1, 2, 3}));
  EXPECT_EQ(changesOf(video), worked);
  EXPECT_TRUE(video.data == Data({1, 2, 3}) && video.frameID == 7);
  RxStreamAudioOperation audio(filled(RxAudioFrame(3, 1), {9}));
  EXPECT_EQ(changesOf(audio), worked);
  EXPECT_TRUE(audio.data == Data{9} && audio.recorded == 3);
  RxStreamVideoOperation incomplete(filled(RxVideoFrame(7, 3), {1, 2}));
  incomplete.start();
  EXPECT_TRUE(!incomplete.data && incomplete.frameID == 7);
}

TEST(ReceiveOperations, GiveAnImageWithItsBounds) {
  const CGRect bounds{{1, 2}, {3, 4}};
  const Data file = *NSImage::create({3, 4})->pngRepresentation();
  const auto expect = [&](std::int64_t size, const Data& data, bool hasImage, bool hasBounds) {
    RxStreamImageOperation operation(filled(RxImageFrame(size, bounds), data));
    EXPECT_EQ(changesOf(operation), worked);
    EXPECT_EQ(operation.image != nullptr, hasImage);
    EXPECT_EQ(operation.bounds, hasBounds ? std::optional(bounds) : std::nullopt);
  };
  expect(std::ssize(file), file, true, true);
  expect(3, {1, 2, 3}, false, true);                 // complete, but no image
  expect(std::ssize(file) + 1, file, false, false);  // incomplete
}

TEST(ReceiveOperations, DoNothingWhenCancelled) {
  const auto frame = filled(RxVideoFrame(7, 1), {1});
  RxStreamVideoOperation operation(frame);
  operation.cancel();
  EXPECT_EQ(changesOf(operation), std::vector<std::string>{"isFinished"});
  EXPECT_TRUE(operation.isFinished());
  EXPECT_EQ(operation.data, std::nullopt);
  EXPECT_EQ(operation.frameID, 0);
  EXPECT_EQ(frame->getData(), std::nullopt);  // not merged either
}

}  // namespace
}  // namespace tarnwick::test
