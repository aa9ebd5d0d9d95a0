#include <gtest/gtest.h>

#include <semaphore>
#include <tuple>

#include "Tests/Stream.hpp"

namespace tarnwick::test {
namespace {

using Params = std::vector<std::string>;

/// The test's thread handles the datagrams, and drains the main queue.
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
  const std::uint16_t port = this->endpoint.second;
  EXPECT_THROW(std::ignore = TypeParam::create("r", port, 1, nullptr), UDPError);
  EXPECT_FALSE(this->receiver->isActive());
  for (int run = 1; run <= 2; ++run) {  // the second one hears nothing
    this->receiver->beginOperation();
    EXPECT_TRUE(this->receiver->isActive());
    EXPECT_THROW(this->receiver->beginOperation(), UDPError);
    this->receiver->endOperation();
    EXPECT_FALSE(this->receiver->isActive());
    EXPECT_TRUE(eventually([port] { return isPortFree(port); }));
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
    // The third is in progress then: it goes on. The second waits: it is dropped.
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
  EXPECT_TRUE(eventually([&] { return unheard.use_count() == owners; }));  // once it has worked
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

}  // namespace
}  // namespace tarnwick::test
