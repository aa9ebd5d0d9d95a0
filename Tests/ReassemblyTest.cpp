#include <gtest/gtest.h>

#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Support.hpp"

namespace tarnwick::test {
namespace {

// What the buffers collect and join: see Fuzzing/FuzzFrames.cpp and its seeds.

TEST(Buffers, LogAnOverflowOnce) {
  Output output;
  const auto overflow = [](auto frame) {
    frame.appendChunk({1, 2});
    frame.appendChunk({1});
  };
  overflow(RxVideoFrame(7, 1));
  overflow(RxImageFrame(1));
  overflow(RxAudioFrame(7, 1));
  logLine("end");
  EXPECT_TRUE(output.awaitLine("end"));
  EXPECT_EQ(output.lines(),
            (std::vector<std::string>{"Append chunk overflow - (RxVideoFrame)",
                                      "Append chunk overflow - (RxImageFrame)",
                                      "Append chunk overflow - (RxAudioFrame)", "end"}));
}

TEST(Buffers, StopTheProcessWhenASizeCannotBe) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string failure = "Fatal error: Arithmetic overflow\n";
  EXPECT_DEATH(RxVideoFrame(7, -1).mergeChunks(), failure);
  EXPECT_DEATH(RxImageFrame(-1).mergeChunks(), failure);
  EXPECT_DEATH(RxAudioFrame(7, -1).mergeChunks(), failure);
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
