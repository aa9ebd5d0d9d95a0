#include <gtest/gtest.h>

#include "Tests/Stream.hpp"

namespace tarnwick::test {
namespace {

/// A receiver that runs, its application, and a peer that talks to it.
template <typename Receiver>
struct Running {
  Running() { receiver->beginOperation(); }
  ~Running() { receiver->endOperation(); }

  const std::shared_ptr<Arrivals> application = std::make_shared<Arrivals>();
  const std::pair<std::shared_ptr<Receiver>, std::uint16_t> endpoint = onFreePort(
      [this](auto port) { return Receiver::create("receiver", port, 65500, application); });
  const std::shared_ptr<Receiver> receiver = endpoint.first;
  Peer peer{endpoint.second};
  MainThread mainThread;
};

using Params = std::vector<std::string>;
const std::optional<Params> none;

/// A small PNG file, the text that announces it, and what the application is told of it.
const Data pictureFile = NSImage::create({3, 2})->pngRepresentation().value();
const std::string pictureSize = std::to_string(pictureFile.size());
Object pictureIn(std::optional<CGRect> bounds) { return {label(bounds), Data(24)}; }

// --- Classification ---

struct Row {
  std::string datagram;
  RxResponse response;
  std::optional<Params> params;
  bool keepsPayload;
};

template <typename Receiver>
void expectRows(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    const Data datagram = bytes(row.datagram);
    const RxMessage expected{row.keepsPayload ? std::optional(datagram) : std::nullopt, row.params,
                             row.response};
    EXPECT_EQ(Receiver::classify(datagram), expected) << row.datagram;
  }
}

TEST(Protocol, NumbersItsResponses) {
  EXPECT_EQ(rxResponseFromRawValue(0), RxResponse::Bounds);
  EXPECT_EQ(rxResponseFromRawValue(7), RxResponse::Wave);
  EXPECT_EQ(rxResponseFromRawValue(10), RxResponse::Unknown);
  EXPECT_EQ(rxResponseFromRawValue(11), std::nullopt);
}

TEST(Protocol, ClassifiesVideo) {
  expectRows<RxVideoUDP>({
      {"start", RxResponse::Start, none, false},
      {"START|now", RxResponse::Start, none, false},
      {"~stop", RxResponse::Stop, none, false},
      {"videoframe|5|size|1000", RxResponse::VideoFrame, Params{"5", "1000"}, false},
      {"VideoFrame|7||x|1200~", RxResponse::VideoFrame, Params{"7", "1200"}, false},
      {"videoframe|5|1000", RxResponse::VideoFrame, none, false},
      {"videoframe|5|a|1000|b", RxResponse::VideoFrame, none, false},
      {"starting", RxResponse::Default, none, true},
      {" start", RxResponse::Default, none, true},
      {"\xFF|start", RxResponse::Default, none, true},
      {"start" + std::string(194, '|'), RxResponse::Start, none, false},   // 199 bytes: a text
      {"start" + std::string(195, '|'), RxResponse::Default, none, true},  // 200: never looked at
      {std::string(200, '|'), RxResponse::Default, none, true},
  });
}

TEST(Protocol, ClassifiesImages) {
  expectRows<RxImageUDP>({
      {"pin|5183", RxResponse::Pin, Params{"5183"}, true},
      {"pin", RxResponse::Default, none, true},
      {"pin|1|2", RxResponse::Default, none, true},
      {"Size|48213", RxResponse::Size, Params{"48213"}, true},
      {"Size|9|Rect|~0~1~1440~900", RxResponse::Size, Params{"9", "0", "1", "1440", "900"}, true},
      {"size", RxResponse::Default, none, true},
      {"size|1|2|3", RxResponse::Default, none, true},
      {"size|1|2|3|4|5|6|7", RxResponse::Default, none, true},
      {"Starting", RxResponse::Start, none, true},
      {"END|of|all", RxResponse::Stop, none, true},
      {"hello", RxResponse::Default, none, false},
      {std::string(65500, '\0'), RxResponse::Default, none, false},
      {"\xC3\x28", RxResponse::Default, none, true},
  });
}

TEST(Protocol, ClassifiesAudio) {
  expectRows<RxAudioUDP>({
      {"wave|1|a|2|b|3", RxResponse::Wave, Params{"1", "2", "3"}, true},
      {"wave|1|2", RxResponse::Default, none, true},
      {"recorded|3|x|5000", RxResponse::Audio, Params{"3", "5000"}, false},
      {"recorded|3|5000", RxResponse::Default, none, true},
      {"start", RxResponse::Default, none, true},
      {std::string(300, 'a'), RxResponse::Default, none, true},
  });
}

TEST(Protocol, StopsTheProcessAtATextWithoutFields) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string text = "Fatal error: Index out of range\n";
  EXPECT_DEATH(std::ignore = RxVideoUDP::classify(Data()), text);
  EXPECT_DEATH(std::ignore = RxImageUDP::classify(bytes("|~|")), text);
  EXPECT_DEATH(std::ignore = RxAudioUDP::classify(bytes(std::string(300, '~'))), text);
  EXPECT_DEATH(
      {
        Running<RxImageUDP> image;
        image.peer.sendBytes({});
        image.application->objects.await();
      },
      text);
}

TEST(Protocol, ReadsRectangles) {
  const std::vector<std::pair<Params, std::optional<CGRect>>> rows{
      {{"1.9", "2", "-3.7", "1e3"}, CGRect{{1, 2}, {-3, 1000}}},
      {{"16777217", "-0.5", "+4", "1e-60"}, CGRect{{16777216, 0}, {4, 0}}},
      {{"-9223372036854775808", "0", "0", "0"}, CGRect{{-9223372036854775808.0, 0}, {0, 0}}},
      {{"a", "2", "3", "4"}, std::nullopt},
      {{"1", "2", " 3", "4"}, std::nullopt},
      {{"1", "2", "3"}, std::nullopt},
      {{"1", "2", "3", "4", "5"}, std::nullopt},
  };
  for (const auto& [params, rect] : rows) EXPECT_EQ(makeCGRect(params), rect) << params[0];
  EXPECT_EQ(makeCGRect(std::nullopt), std::nullopt);
}

TEST(Protocol, StopsTheProcessAtACoordinateThatDoesNotFit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string failure = "Fatal error: Float value cannot be converted to Int because ";
  const std::vector<std::pair<Params, std::string>> rows{
      {{"inf", "0", "0", "0"}, "it is either infinite or NaN\n"},
      {{"a", "nan", "0", "0"}, "it is either infinite or NaN\n"},
      {{"0", "0", "0", "-9223373136366403584"}, "the result would be less than Int.min\n"},
      {{"0", "0", "9223372036854775808", "0"}, "the result would be greater than Int.max\n"},
  };
  for (const auto& [params, reason] : rows) {
    EXPECT_DEATH(std::ignore = makeCGRect(params), failure + reason);
  }
}

// --- The video receiver ---

// What becomes of objects that are replaced, discarded or corrupt: see Fuzzing/FuzzReceivers.cpp.

TEST(Video, StartsDeliversAndStops) {
  Running<RxVideoUDP> video;
  video.peer.sendBytes({1, 2, 3});  // announced by nobody
  video.peer.say("START");
  EXPECT_EQ(video.peer.hearText(), "video|started");
  EXPECT_EQ(video.application->objects.await(), (Object{"started", {}}));
  video.peer.say("videoframe|1|x|300");
  video.peer.sendBytes(Data(200, 9));
  video.peer.sendBytes(Data(100, 8));
  Data frame(200, 9);
  frame.resize(300, 8);
  EXPECT_EQ(video.application->objects.await(), (Object{"1", frame}));
  video.peer.say("stop");
  EXPECT_EQ(video.peer.hearText(), "video|stopped");
  EXPECT_EQ(video.application->objects.await(), (Object{"stopped", {}}));
}

// --- The image receiver ---

TEST(Image, AnswersPins) {
  Running<RxImageUDP> image;
  for (const auto& [pin, answer] : {std::pair{"pin|5183", "pin|ok"},
                                    {"PIN~1234", "pin|rejected"},
                                    {"pin|05183", "pin|rejected"},
                                    {"pin|5183 ", "pin|rejected"}}) {
    image.peer.say(pin);
    EXPECT_EQ(image.peer.hearText(), answer);
  }
  image.peer.say("pin");
  EXPECT_TRUE(image.peer.hearsNothing());
  const auto answer = [&](std::optional<Params> params) {
    return image.receiver->handleMessage(std::nullopt, std::move(params), RxResponse::Pin);
  };
  EXPECT_EQ(answer(std::nullopt), Data{10});
  EXPECT_EQ(answer(Params{"5183", "5183"}), Data{10});
  EXPECT_TRUE(image.receiver->approveConnection("5183"));
}

TEST(Image, DeliversScreensAndRegions) {
  Output output;
  Running<RxImageUDP> image;
  image.peer.say("size|" + pictureSize);
  image.peer.sendBytes(pictureFile);
  EXPECT_EQ(image.application->objects.await(), pictureIn(std::nullopt));
  for (const char* ignored : {"Size|x|Rect|~0~0~9~9", "Size|9|Rect|~a~0~9~9", "size|1e3"}) {
    image.peer.say(ignored);
  }
  image.peer.say("Size|" + pictureSize + "|Rect|~0~-1~1440.9~900");
  const auto half = pictureFile.begin() + 9;
  image.peer.sendBytes({pictureFile.begin(), half});
  image.peer.sendBytes({half, pictureFile.end()});
  EXPECT_EQ(image.application->objects.await(), pictureIn(CGRect{{0, -1}, {1440, 900}}));
  EXPECT_TRUE(output.awaitLine("New full frame with size " + pictureSize));
  EXPECT_TRUE(output.awaitLine("New frame with size " + pictureSize +
                               " bounds (0.0, -1.0, 1440.0, 900.0)"));
  EXPECT_EQ(std::count_if(output.lines().begin(), output.lines().end(),
                          [](const std::string& line) { return line.starts_with("New"); }),
            2);  // and none for what is ignored
}

// --- The audio receiver ---

TEST(Audio, DeliversRecordingsAndNeverReplies) {
  Running<RxAudioUDP> audio;
  for (const char* text : {"recorded|4|x|13", "hello", "wave|1|a|2|b|3", "wave|1|2"}) {
    audio.peer.say(text);
  }
  EXPECT_EQ(audio.application->objects.await(), (Object{"4", bytes("hellowave|1|2")}));
  EXPECT_TRUE(audio.peer.hearsNothing());
}

// --- What the three have in common ---

TEST(Receivers, PassTheErrorsOfTheirEndpoint) {
  const Peer holder;
  EXPECT_THROW(std::ignore = RxVideoUDP::create("r", holder.port(), 1, nullptr), UDPError);
  EXPECT_THROW(std::ignore = RxImageUDP::create("r", holder.port(), 1, nullptr), UDPError);
  EXPECT_THROW(std::ignore = RxAudioUDP::create("r", holder.port(), 1, nullptr), UDPError);
  Running<RxAudioUDP> audio;
  EXPECT_TRUE(audio.receiver->isActive());
  EXPECT_THROW(audio.receiver->beginOperation(), UDPError);
  audio.receiver->endOperation();
  EXPECT_FALSE(audio.receiver->isActive());
  EXPECT_TRUE(eventually([&] { return isPortFree(audio.endpoint.second); }));
  audio.receiver->beginOperation();
  EXPECT_TRUE(audio.receiver->isActive());
}

TEST(Receivers, StopTheProcessAtAnAnnouncementThatIsNone) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto announce = [](Params params) {
    const auto video = std::make_shared<Running<RxVideoUDP>>();
    video->receiver->handleMessage(std::nullopt, std::move(params), RxResponse::VideoFrame);
  };
  const auto hear = [](auto running, const char* announcement) {
    running->peer.say(announcement);
    running->application->objects.await();
  };
  const std::string noNumber =
      "Fatal error: Unexpectedly found nil while unwrapping an Optional value\n";
  EXPECT_DEATH(announce({"1", "9223372036854775808"}), noNumber);
  EXPECT_DEATH(announce({"1"}), "Fatal error: Index out of range\n");
  EXPECT_DEATH(hear(std::make_unique<Running<RxVideoUDP>>(), "videoframe|1|x|3.0"), noNumber);
  EXPECT_DEATH(hear(std::make_unique<Running<RxVideoUDP>>(), "videoframe|a|x|3"), noNumber);
  EXPECT_DEATH(hear(std::make_unique<Running<RxAudioUDP>>(), "recorded|x|y|6"), noNumber);
}

TEST(Receivers, WorkWithoutADelegate) {
  const MainThread mainThread;
  const auto [video, port] =
      onFreePort([](auto free) { return RxVideoUDP::create("video", free, 65500, nullptr); });
  Peer peer(port);
  video->beginOperation();
  for (const char* text : {"start", "videoframe|1|x|1", "a", "stop"}) peer.say(text);
  EXPECT_EQ(peer.hearText(), "video|started");
  EXPECT_EQ(peer.hearText(), "video|stopped");
  video->endOperation();
}

TEST(Receivers, DeliverWhatTheMainQueueHoldsAfterTheEnd) {
  Running<RxVideoUDP> video;
  video.receiver->endOperation();
  EXPECT_TRUE(eventually([&] { return isPortFree(video.endpoint.second); }));
  video.receiver->handleMessage(std::nullopt, Params{"2", "1"}, RxResponse::VideoFrame);
  video.receiver->handleMessage(Data{7}, std::nullopt, RxResponse::Default);
  EXPECT_EQ(video.application->objects.await(), (Object{"2", {7}}));
}

}  // namespace
}  // namespace tarnwick::test
