#include <gtest/gtest.h>

#include <future>

#include "Tests/Pictures.hpp"
#include "Tests/Stream.hpp"

namespace tarnwick::test {

using Clock = std::chrono::steady_clock;

constexpr CGFloat nan = std::numeric_limits<CGFloat>::quiet_NaN();

std::shared_ptr<NSImage> image(std::int64_t width, std::int64_t height) {
  return NSImage::fromBitmap(picture(width, height));
}

/// A running sender and its peer, which has received "starting".
struct Sending {
  explicit Sending(std::int64_t chunkSize = 65500)
      : sender(TxImageUDP::create("sender", "127.0.0.1", peer.port(), chunkSize)) {
    sender->beginOperation();
    EXPECT_EQ(peer.hearText(), "starting");
  }

  Peer peer;
  const std::shared_ptr<TxImageUDP> sender;
};

std::string headerOf(const Data& file) { return "Size|" + std::to_string(file.size()); }

TEST(Sender, OpensAndClosesTheStream) {
  EXPECT_THROW(std::ignore = TxImageUDP::create("sender", "nowhere", 1, 1), UDPError);
  Output output;
  Peer peer;
  const auto sender = TxImageUDP::create("sender", "127.0.0.1", peer.port(), 65500);
  EXPECT_FALSE(sender->isActive());
  const auto sent = image(2, 2);
  sender->send(sent, {}, 1, true, 0.5F);  // sent after beginOperation()
  EXPECT_TRUE(output.awaitLine("frame 1 sent"));
  auto begin = Clock::now();
  sender->beginOperation();
  EXPECT_GE(Clock::now() - begin, std::chrono::seconds(1));  // no reply arrives
  EXPECT_TRUE(sender->isActive());
  EXPECT_THROW(sender->beginOperation(), UDPError);
  sender->setIsActive(false);  // does not stop the stream
  sender->send(sent, {}, 2, true, 0.5F);
  const Data file = *sent->jpegRepresentation(0.5F), header = bytes(headerOf(file));
  for (const Data& expected : {header, file, bytes("starting"), header, file}) {
    EXPECT_EQ(peer.hear(), expected);
  }
  peer.say("ok");
  peer.sendBytes({0xFF});
  peer.say("bye");
  EXPECT_TRUE(output.awaitLine("got response ok") && output.awaitLine("got response bye"));
  EXPECT_FALSE(output.lines().end()[-2].starts_with("got response \xFF"));
  sender->setIsActive(true);
  begin = Clock::now();
  std::thread ending([&] { sender->endOperation(); });
  EXPECT_EQ(peer.hearText(), "End");
  EXPECT_GE(Clock::now() - begin, std::chrono::seconds(1));
  ending.join();
  EXPECT_GE(Clock::now() - begin, std::chrono::seconds(2));
  EXPECT_FALSE(sender->isActive());
  EXPECT_TRUE(output.awaitLine("End Operation for sender"));
}

TEST(Sender, AnnouncesAndSendsEachImageInOrder) {
  Output output;
  Sending sending;
  using Row = std::tuple<std::shared_ptr<NSImage>, CGRect, std::uint64_t, std::string, float>;
  const std::vector<Row> rows{
      {image(320, 240), {{nan, 0}, {0, 0}}, 1, "", 0.5F},  // takes longest to encode
      {image(17, 31), {{12.7, -3.2}, {100, 50.9}}, UINT64_MAX, "|Rect|~12~-3~100~50", 2.0F},
      {NSImage::create({65501, 1}), {}, 7, "", 0.5F},  // cannot be encoded
      {image(64, 48), {{-0.5, 1e18}, {0, 0}}, 42, "|Rect|~0~1000000000000000000~0~0", -1.0F}};
  for (const auto& [sent, rect, frame, region, factor] : rows) {
    sending.sender->send(sent, rect, frame, region.empty(), factor);
  }
  std::vector<std::string> lines;
  for (const auto& [sent, rect, frame, region, factor] : rows) {
    if (const auto file = sent->jpegRepresentation(std::clamp(factor, 0.0F, 1.0F))) {
      EXPECT_EQ(sending.peer.hearText(), headerOf(*file) + region);
      EXPECT_EQ(sending.peer.hear(), file);
      const std::string size = shortestDecimal(static_cast<float>(file->size()) / 1024);
      lines.push_back("sending " + size + "k image");
    }
    lines.push_back("frame " + std::to_string(frame) + " sent");
  }
  EXPECT_TRUE(output.awaitLine(lines.back()));
  EXPECT_EQ(std::vector(output.lines().end() - std::ssize(lines), output.lines().end()), lines);
  sending.sender->endOperation();
}

TEST(Sender, DropsWhatWaitsAtTheEnd) {
  const auto leaving = image(640, 480), large = image(1920, 1080);
  const auto size = std::ssize(*leaving->jpegRepresentation(0.9F));
  Output output;
  Sending sending(size / 1300);  // frame 1 still waits behind frame 0's chunks at the end
  auto headers = std::async(std::launch::async, [&] {
    int count = 0;
    while (const auto datagram = sending.peer.hear(std::chrono::seconds(1))) {
      count += characters(*datagram).starts_with("Size|") ? 1 : 0;
    }
    return count;
  });
  for (const std::uint64_t frame : {0U, 1U}) sending.sender->send(leaving, {}, frame, true, 0.9F);
  EXPECT_TRUE(output.awaitLine("frame 1 sent"));
  for (std::uint64_t frame = 2; frame < 30; ++frame) {  // one is being encoded at the end
    sending.sender->send(large, {}, frame, true, 0.9F);
  }
  sending.sender->endOperation();
  EXPECT_EQ(headers.get(), 1);
  EXPECT_TRUE(output.awaitLine("frame 29 sent"));  // by design also for cancelled images
  EXPECT_LT(output.lines().size(), 60);            // but no "sending" for them
}

TEST(SendOperation, AnnouncesItsStates) {
  const auto client = UDPClient::create("client", "127.0.0.1", 1);
  for (const bool isCancelled : {false, true}) {
    TxStreamImageOperation operation({9, {}, image(2, 2), true}, client, 0.7F);
    EXPECT_TRUE(announcesStates(operation, isCancelled));
  }
}

TEST(SendOperation, StopsTheProcessAtWhatCannotBeSent) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto client = UDPClient::create("client", "127.0.0.1", 1);
  const auto run = [&](std::shared_ptr<NSImage> sent, CGRect rect) {
    TxStreamImageOperation({1, rect, std::move(sent), false}, client, 0.5F).start();
  };
  const std::string noBitmap =
      "Fatal error: Unexpectedly found nil while unwrapping an Optional value\n";
  EXPECT_DEATH(run(nullptr, {}), noBitmap);
  EXPECT_DEATH(run(NSImage::create({0, 0}), {}), noBitmap);
  // The values are checked in the order x, y, width, height.
  constexpr CGFloat small = -1e19, great = 9223372036854775808.0;
  for (const auto& [rect, reason] : std::initializer_list<std::pair<CGRect, const char*>>{
           {{{nan, great}, {0, 0}}, "it is either infinite or NaN"},
           {{{0, great}, {small, 0}}, "the result would be greater than Int.max"},
           {{{0, 0}, {small, nan}}, "the result would be less than Int.min"},
           {{{0, 0}, {0, -HUGE_VAL}}, "it is either infinite or NaN"}}) {
    EXPECT_DEATH(run(image(2, 2), rect), std::string("Fatal error: Double value cannot be ") +
                                             "converted to Int because " + reason + "\n");
  }
}

}  // namespace tarnwick::test
