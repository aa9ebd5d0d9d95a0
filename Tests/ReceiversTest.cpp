#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <sstream>
#include <tuple>

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

// --- What Documentation/Protocol.md shows ---

/// The lines of a table that are no comment, each as so many words; the last is the line's rest.
std::vector<std::vector<std::string>> rows(const std::string& table, std::size_t wordCount) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream file(TARNWICK_VECTORS "/" + table + ".txt");
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line.starts_with('#')) continue;
    std::istringstream text(line);
    auto& row = rows.emplace_back(wordCount);
    for (std::size_t i = 0; i + 1 < wordCount; ++i) text >> row[i];
    std::getline(text >> std::ws, row.back());
  }
  EXPECT_FALSE(rows.empty()) << table;
  return rows;
}

/// The bytes that a word stands for: \xHH for one, C{N} for N times the one before, - for none.
Data content(std::string_view word) {
  Data data;
  if (word == "-") return data;
  while (!word.empty()) {
    std::size_t length = 1;
    if (word.starts_with("\\x")) {
      length = 4;
      data.push_back(static_cast<std::uint8_t>(std::stoi(std::string(word, 2, 2), nullptr, 16)));
    } else if (word.front() == '{') {
      length = word.find('}') + 1;
      const std::uint8_t repeated = data.back();
      data.resize(data.size() - 1 + std::stoul(std::string(word.substr(1))), repeated);
    } else {
      data.push_back(static_cast<std::uint8_t>(word.front()));
    }
    word.remove_prefix(length);
  }
  return data;
}

std::optional<RxResponse> responseNamed(std::string_view name) {
  constexpr std::array<std::string_view, 11> names{"Bounds", "Default",    "OK",     "Pin",
                                                   "Start",  "Stop",       "Size",   "Wave",
                                                   "Audio",  "VideoFrame", "Unknown"};
  const auto rawValue = std::find(names.begin(), names.end(), name) - names.begin();
  return rxResponseFromRawValue(static_cast<std::uint8_t>(rawValue));
}

/// What stands on standard error when the process stops; absent when it does not.
std::optional<std::string> failure(const std::string& outcome) {
  if (!outcome.starts_with("fatal: ")) return std::nullopt;
  return "Fatal error: " + outcome.substr(7) + "\n";
}

template <typename Receiver>
void expectAnswers(const char* table) {
  Running<Receiver> running;
  for (const auto& row : rows(table, 5)) {
    SCOPED_TRACE(row[0]);
    const Data datagram = content(row[0]);
    if (const auto response = responseNamed(row[1])) {
      RxMessage expected{std::nullopt, std::nullopt, *response};
      if (row[2] != "-") {
        auto& params = expected.params.emplace();
        for (const auto param : split(row[2], ",")) {
          params.emplace_back(characters(content(param)));
        }
      }
      if (row[3] == "kept") expected.payload = datagram;
      EXPECT_EQ(Receiver::classify(datagram), expected);
    }
    if (failure(row[4])) continue;
    running.peer.sendBytes(datagram);
    if (row[4] == "-") continue;
    EXPECT_EQ(running.peer.hear(), content(row[4]));
  }
  EXPECT_TRUE(running.peer.hearsNothing());
}

TEST(Protocol, ClassifiesAndAnswers) {
  expectAnswers<RxVideoUDP>("video");
  expectAnswers<RxImageUDP>("image");
  expectAnswers<RxAudioUDP>("audio");
}

template <typename Receiver>
void expectFailures(const char* table) {
  for (const auto& row : rows(table, 5)) {
    if (!failure(row[4])) continue;
    const auto hear = [&row] {
      Running<Receiver> running;
      running.peer.sendBytes(content(row[0]));
      running.application->objects.await();
    };
    EXPECT_DEATH(hear(), *failure(row[4])) << row[0];
  }
}

TEST(Protocol, StopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  expectFailures<RxVideoUDP>("video");
  expectFailures<RxImageUDP>("image");
  expectFailures<RxAudioUDP>("audio");
}

TEST(Protocol, ReadsNumbers) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const auto& row : rows("numbers", 3)) {
    SCOPED_TRACE(row[0]);
    const std::string text(characters(content(row[0])));
    EXPECT_EQ(parseInteger(text), parseInteger(row[1]));
    const auto rect = [&text] { return makeCGRect(Params{"1", "2", "3", text}); };
    if (const auto failing = failure(row[2])) {
      EXPECT_DEATH(std::ignore = rect(), *failing);
    } else if (const auto height = parseInteger(row[2])) {
      EXPECT_EQ(rect(), (CGRect{{1, 2}, {3, static_cast<CGFloat>(*height)}}));
    } else {
      EXPECT_EQ(rect(), std::nullopt);
    }
  }
}

template <typename Receiver>
void expectExchange(const char* table, const char* name) {
  Running<Receiver> running;
  for (const auto& row : rows(table, 4)) {
    if (row[0] != name) continue;
    SCOPED_TRACE(row[2] + row[3]);
    const Data datagram = content(row[2]);
    if (row[1] == ">") {
      running.peer.sendBytes(datagram);
    } else if (row[1] == "<") {
      EXPECT_EQ(running.peer.hear(), datagram);
    } else {
      EXPECT_EQ(running.application->objects.await(), Object(row[3], datagram));
    }
  }
  EXPECT_TRUE(running.peer.hearsNothing());
  EXPECT_TRUE(running.application->objects.isEmpty());
}

TEST(Protocol, DeliversWhatWasAnnounced) {
  expectExchange<RxImageUDP>("exchange", "image");
  expectExchange<RxVideoUDP>("pieces", "video");
  expectExchange<RxImageUDP>("pieces", "image");
  expectExchange<RxAudioUDP>("pieces", "audio");
}

// --- What no datagram brings about ---

TEST(Protocol, ReadsRectanglesOfFourNumbers) {
  EXPECT_EQ(makeCGRect(Params{"1", "2", "3"}), std::nullopt);
  EXPECT_EQ(makeCGRect(Params{"1", "2", "3", "4", "5"}), std::nullopt);
  EXPECT_EQ(makeCGRect(std::nullopt), std::nullopt);
}

TEST(Image, AnswersAPinThatIsNone) {
  Running<RxImageUDP> image;
  const auto answer = [&](std::optional<Params> params) {
    return image.receiver->handleMessage(std::nullopt, std::move(params), RxResponse::Pin);
  };
  EXPECT_EQ(answer(std::nullopt), Data{10});
  EXPECT_EQ(answer(Params{"5183", "5183"}), Data{10});
  EXPECT_TRUE(image.receiver->approveConnection("5183"));
}

TEST(Image, LogsAnnouncements) {
  Output output;
  Running<RxImageUDP> image;
  for (const char* text : {"Size|x|Rect|~0~0~9~9", "Size|9|Rect|~a~0~9~9", "size|1e3", "size|70",
                           "Size|9|Rect|~0~-1~1440.9~900"}) {
    image.peer.say(text);
  }
  EXPECT_TRUE(output.awaitLine("New full frame with size 70"));
  EXPECT_TRUE(output.awaitLine("New frame with size 9 bounds (0.0, -1.0, 1440.0, 900.0)"));
  EXPECT_EQ(std::count_if(output.lines().begin(), output.lines().end(),
                          [](const std::string& line) { return line.starts_with("New"); }),
            2);  // and none for what is ignored
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

TEST(Receivers, StopTheProcessAtMissingParameters) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto announce = [] {
    Running<RxVideoUDP> video;
    video.receiver->handleMessage(std::nullopt, Params{"1"}, RxResponse::VideoFrame);
  };
  EXPECT_DEATH(announce(), "Fatal error: Index out of range\n");
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
