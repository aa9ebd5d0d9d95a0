#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <thread>

#include "Tarnwick/Platform/Text.hpp"
#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Pictures.hpp"
#include "Tests/Support.hpp"

namespace tarnwick::test {
namespace {

constexpr CGFloat nan = std::numeric_limits<CGFloat>::quiet_NaN();

std::shared_ptr<NSImage> image(std::int64_t width, std::int64_t height) {
  return NSImage::fromBitmap(picture(width, height));
}

/// A sender that has begun, and the peer that it talks to, which has heard "starting".
struct Sending {
  explicit Sending(std::int64_t chunkSize = 65500)
      : sender(TxImageUDP::create("sender", "127.0.0.1", peer.port(), chunkSize)) {
    std::thread answering([this] {
      EXPECT_EQ(peer.hearText(), "starting");
      peer.say("ok");
    });
    sender->beginOperation();
    answering.join();
  }

  Peer peer;
  const std::shared_ptr<TxImageUDP> sender;
};

std::string headerOf(const Data& file) { return "Size|" + std::to_string(file.size()); }

TEST(Sender, OpensAndClosesTheStream) {
  Output output;
  Sending sending;
  EXPECT_TRUE(sending.sender->isActive());
  EXPECT_THROW(sending.sender->beginOperation(), UDPError);
  EXPECT_TRUE(output.awaitLine("got response ok"));
  sending.peer.sendBytes({0xFF});
  sending.peer.say("bye");
  EXPECT_TRUE(output.awaitLine("got response bye"));
  const auto begin = std::chrono::steady_clock::now();
  sending.sender->endOperation();
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  EXPECT_FALSE(sending.sender->isActive());
  EXPECT_EQ(sending.peer.hearText(), "End");
  EXPECT_TRUE(output.awaitLine("End Operation for sender"));
  EXPECT_EQ(std::count_if(output.lines().begin(), output.lines().end(),
                          [](const std::string& line) { return line.starts_with("got"); }),
            2);
}

TEST(Sender, IsActiveWithoutAnAnswer) {
  const Peer silent;
  const auto sender = TxImageUDP::create("sender", "127.0.0.1", silent.port(), 65500);
  EXPECT_FALSE(sender->isActive());
  sender->beginOperation();
  EXPECT_TRUE(sender->isActive());
  sender->setIsActive(false);
  EXPECT_FALSE(sender->isActive());
  sender->endOperation();
  EXPECT_THROW(std::ignore = TxImageUDP::create("sender", "nowhere", 1, 1), UDPError);
}

TEST(Sender, AnnouncesAndSendsEachImageInOrder) {
  Output output;
  Sending sending;
  const auto screen = image(64, 48), region = image(17, 31);
  sending.sender->send(screen, {{nan, 0}, {0, 0}}, 1, true, 0.5F);
  sending.sender->send(region, {{12.7, -3.2}, {100, 50.9}}, 18446744073709551615U, false, 2.0F);
  sending.sender->send(screen, {{-0.5, 1e18}, {0, 0}}, 42, false, -1.0F);
  const auto [first, second, third] =
      std::array{*screen->jpegRepresentation(0.5F), *region->jpegRepresentation(1.0F),
                 *screen->jpegRepresentation(0.0F)};
  EXPECT_EQ(sending.peer.hearText(), headerOf(first));
  EXPECT_EQ(sending.peer.hear(), first);
  EXPECT_EQ(sending.peer.hearText(), headerOf(second) + "|Rect|~12~-3~100~50");
  EXPECT_EQ(sending.peer.hear(), second);
  EXPECT_EQ(sending.peer.hearText(), headerOf(third) + "|Rect|~0~1000000000000000000~0~0");
  EXPECT_EQ(sending.peer.hear(), third);
  std::deque<std::size_t> sizes{first.size(), second.size(), third.size()};
  for (const char* number : {"1", "18446744073709551615", "42"}) {
    EXPECT_TRUE(output.awaitLine("frame " + std::string(number) + " sent"));
    EXPECT_EQ(output.lines()[output.lines().size() - 2],
              "sending " + shortestDecimal(static_cast<float>(sizes.front()) / 1024) + "k image");
    sizes.pop_front();
  }
  sending.sender->endOperation();
}

TEST(Sender, SendsNothingOfWhatCannotBeEncoded) {
  Output output;
  Sending sending;
  const auto tooWide = NSImage::create({65501, 1});
  sending.sender->send(tooWide, {}, 7, true, 0.5F);
  EXPECT_TRUE(output.awaitLine("frame 7 sent"));
  EXPECT_FALSE(output.lines()[output.lines().size() - 2].starts_with("sending "));
  EXPECT_TRUE(sending.peer.hearsNothing());
  sending.sender->endOperation();
}

TEST(Sender, DropsWhatWaitsAtTheEnd) {
  Sending sending;
  const auto large = image(1920, 1080);
  for (std::uint64_t frame = 0; frame < 30; ++frame) {
    sending.sender->send(large, {}, frame, true, 0.9F);
  }
  sending.sender->endOperation();
  // What had been encoded by then may have left; nothing else has, and the end comes last.
  int headers = 0;
  std::string message;
  do {
    message = sending.peer.hearText();
    headers += message.starts_with("Size|") ? 1 : 0;
  } while (message != "End" && message != "(nothing)");
  EXPECT_EQ(message, "End");
  EXPECT_LT(headers, 30);
  EXPECT_TRUE(sending.peer.hearsNothing());
}

// --- The operation by itself ---

TEST(SendOperation, DoesNothingWhenCancelled) {
  Peer peer;
  const auto client = UDPClient::create("client", "127.0.0.1", peer.port());
  client->beginOperation();
  TxStreamImageOperation operation({9, {}, image(2, 2), true}, client, 0.7F);
  operation.cancel();
  operation.start();
  EXPECT_TRUE(operation.isFinished());
  EXPECT_TRUE(peer.hearsNothing());
  client->endOperation();
}

TEST(SendOperation, StopsTheProcessAtWhatCannotBeSent) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto client = UDPClient::create("client", "127.0.0.1", 1);
  const auto run = [&](std::shared_ptr<NSImage> sent, CGRect rect) {
    TxStreamImageOperation({1, rect, std::move(sent), false}, client, 0.5F).start();
  };
  const auto picture = image(2, 2);
  const std::string noBitmap =
      "Fatal error: Unexpectedly found nil while unwrapping an Optional value\n";
  const std::string failure = "Fatal error: Double value cannot be converted to Int because ";
  EXPECT_DEATH(run(nullptr, {}), noBitmap);
  EXPECT_DEATH(run(NSImage::create({0, 0}), {}), noBitmap);
  EXPECT_DEATH(run(picture, {{0, nan}, {0, 0}}), failure + "it is either infinite or NaN\n");
  EXPECT_DEATH(run(picture, {{0, 0}, {-1e19, 0}}),
               failure + "the result would be less than Int.min\n");
  EXPECT_DEATH(run(picture, {{0, 0}, {0, 9223372036854775808.0}}),
               failure + "the result would be greater than Int.max\n");
}

}  // namespace
}  // namespace tarnwick::test
