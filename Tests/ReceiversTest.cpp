#include <gtest/gtest.h>

#include <semaphore>

#include "Tests/Stream.hpp"

namespace tarnwick::test {

using Params = std::vector<std::string>;

/// The test's thread handles the datagrams and drains the main queue.
template <typename Receiver>
struct Receivers : testing::Test, Receiving<Receiver> {
  static void hear(Receiver& receiver, Data datagram) {
    auto [payload, params, response] = Receiver::classify(std::move(datagram));
    receiver.handleMessage(std::move(payload), std::move(params), response);
  }
  void announce(std::int64_t number) {
    hear(*this->receiver, bytes(announcement<Receiver>(number, smallFile().size())));
  }
  void sendBytes() {
    hear(*this->receiver, smallFile());
    DispatchQueue::main().drain();
  }
};
using Kinds = testing::Types<RxVideoUDP, RxImageUDP, RxAudioUDP>;
TYPED_TEST_SUITE(Receivers, Kinds);

TYPED_TEST(Receivers, AreActiveFromBeginToEnd) {
  EXPECT_THROW(std::ignore = TypeParam::create("r", this->port, 1, nullptr), UDPError);
  EXPECT_FALSE(this->receiver->isActive());
  for (int run = 1; run <= 2; ++run) {  // the second run has no socket
    this->receiver->beginOperation();
    EXPECT_TRUE(this->receiver->isActive());
    EXPECT_THROW(this->receiver->beginOperation(), UDPError);
    this->receiver->endOperation();
    EXPECT_FALSE(this->receiver->isActive());
    EXPECT_TRUE(eventually([this] { return isPortFree(this->port); }));
  }
}

TYPED_TEST(Receivers, DeliverOneObjectAtATimeUntilTheEnd) {
  Mailbox<std::thread::id> callers;
  std::counting_semaphore<> returns(0);
  this->application->onObject = [&] {
    callers.put(std::this_thread::get_id());
    returns.acquire();
  };
  for (const std::int64_t number : {1, 2, 3}) {
    this->announce(number);
    // The third is incomplete and continues. The second waits and is dropped.
    if (number == 3) this->receiver->endOperation();
    this->sendBytes();
    if (number != 1) continue;
    const auto caller = callers.await();
    EXPECT_TRUE(caller && caller != std::this_thread::get_id());
  }
  EXPECT_EQ(callers.await(std::chrono::milliseconds(100)), std::nullopt);
  returns.release(3);
  EXPECT_EQ(this->application->objects.await(), smallObject<TypeParam>(1));
  EXPECT_EQ(this->application->objects.await(), smallObject<TypeParam>(3));
}

TYPED_TEST(Receivers, IgnoreMessagesWithoutContent) {
  this->announce(1);
  using enum RxResponse;
  for (const auto response : {Bounds, Default, OK, Size, Wave, Audio, VideoFrame, Unknown}) {
    EXPECT_EQ(this->receiver->handleMessage({}, {}, response), std::nullopt);
  }
  this->sendBytes();
  EXPECT_EQ(this->application->objects.await(), smallObject<TypeParam>(1));
}

TYPED_TEST(Receivers, WorkWithoutADelegate) {
  const auto unheard = TypeParam::create("receiver", 0, 65500, nullptr);
  const auto owners = unheard.use_count();
  this->hear(*unheard, bytes("start"));
  this->hear(*unheard, bytes(announcement<TypeParam>(1, smallFile().size())));
  this->hear(*unheard, smallFile());
  this->hear(*unheard, bytes("stop"));
  DispatchQueue::main().drain();
  EXPECT_TRUE(eventually([&] { return unheard.use_count() == owners; }));  // after its operation
}

TYPED_TEST(Receivers, SplitMessages) {
  EXPECT_EQ(this->receiver->splitMessage("~~a|b c~"), (Params{"a", "b c"}));
}

TEST(Video, StopsTheProcessAtMissingParameters) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const Running<RxVideoUDP> video;
  EXPECT_DEATH(video.receiver->handleMessage({}, Params{"1"}, RxResponse::VideoFrame),
               "Fatal error: Index out of range\n");
}

using ImageReceiver = Receivers<RxImageUDP>;

TEST_F(ImageReceiver, AnswersAPinThatIsNone) {
  for (const std::optional<Params>& params : {std::optional<Params>(), {Params{"5183", "5183"}}}) {
    EXPECT_EQ(receiver->handleMessage({}, params, RxResponse::Pin), Data{10});
  }
  EXPECT_TRUE(receiver->approveConnection("5183"));
}

TEST_F(ImageReceiver, LogsAnnouncements) {
  Output output;
  receiver->handleMessage({}, Params{"9", "9"}, RxResponse::Size);
  for (const char* text : {"Size|x|Rect|~0~0~9~9", "Size|9|Rect|~a~0~9~9", "size|1e3", "size|70",
                           "Size|9|Rect|~0~-1~1440.9~900"}) {
    hear(*receiver, bytes(text));
  }
  const std::string last = "New frame with size 9 bounds (0.0, -1.0, 1440.0, 900.0)";
  EXPECT_TRUE(output.awaitLine(last));
  EXPECT_EQ(output.lines(), (Params{"New full frame with size 70", last}));
}

/// Size, chunks, isFull, isCorrupt and the merged bytes. FuzzFrames.cpp tests other calls.
using Case = std::tuple<std::int64_t, std::vector<Data>, bool, bool, std::optional<Data>>;
const std::vector<Case> cases{
    {2, {}, false, false, {}},
    {3, {{1, 2}}, false, false, {}},
    {3, {{1, 2}, {3}}, true, false, {{1, 2, 3}}},
    {3, {{1, 2}, {3, 4}}, false, true, {}},               // the second chunk is dropped
    {3, {{1, 2}, {3, 4}, {5}}, true, true, {{1, 2, 5}}},  // the third one fits
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
    EXPECT_EQ(frame.getData(), merged);  // the buffer is copied
    frame.mergeChunks();                 // the chunks were released: zeros
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

}  // namespace tarnwick::test
