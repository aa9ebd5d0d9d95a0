#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "Tests/Stream.hpp"

// Runs the tables of Tests/Vectors. Documentation/Protocol.md shows most of them.

namespace tarnwick::test {

using Params = std::vector<std::string>;

/// The rows of a table, split into `wordCount` words. The last word is the rest of the line.
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

/// The bytes of a word: \xHH is one byte, C{N} repeats C N times, and - is empty.
Data content(const std::string& word) {
  static const std::regex token(R"(\\x(..)|\{(\d+)\}|.)");
  Data data;
  if (word == "-") return data;
  for (std::sregex_iterator at(word.begin(), word.end(), token), end; at != end; ++at) {
    const std::ssub_match hex = (*at)[1], count = (*at)[2];
    const int byte = hex.matched ? std::stoi(hex, nullptr, 16) : *(*at)[0].first;
    data.resize(data.size() + (count.matched ? std::stoul(count) - 1 : 1),
                count.matched ? data.back() : static_cast<std::uint8_t>(byte));
  }
  return data;
}

std::optional<RxResponse> responseNamed(std::string_view name) {
  const auto names =
      split("Bounds Default OK Pin Start Stop Size Wave Audio VideoFrame Unknown", " ");
  const auto rawValue = std::find(names.begin(), names.end(), name) - names.begin();
  return rxResponseFromRawValue(static_cast<std::uint8_t>(rawValue));
}

/// The expected message of a process that stops; absent if it continues.
std::optional<std::string> failure(const std::string& outcome) {
  if (!outcome.starts_with("fatal: ")) return std::nullopt;
  return "Fatal error: " + outcome.substr(7) + "\n";
}

template <typename Receiver>
void expectRows(const char* table) {
  Running<Receiver> running;
  for (const auto& row : rows(table, 5)) {
    SCOPED_TRACE(row[0]);
    const Data datagram = content(row[0]);
    if (const auto response = responseNamed(row[1])) {
      RxMessage expected{std::nullopt, std::nullopt, *response};
      const Data params = content(row[2]);
      const auto fields = split(characters(params), ",");
      if (!fields.empty()) expected.params.emplace(fields.begin(), fields.end());
      if (row[3] == "kept") expected.payload = datagram;
      EXPECT_EQ(Receiver::classify(datagram), expected);
    }
    if (const auto failing = failure(row[4])) {
      const auto hear = [&] {
        running.peer.sendBytes(datagram), std::this_thread::sleep_for(deadline);
      };
      EXPECT_DEATH(hear(), *failing);
      continue;
    }
    running.peer.sendBytes(datagram);
    if (row[4] == "-") continue;
    EXPECT_EQ(running.peer.hear(), content(row[4]));
  }
  EXPECT_TRUE(running.peer.hearsNothing());
}

TEST(Protocol, ClassifiesAndAnswersOrStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  expectRows<RxVideoUDP>("video");
  expectRows<RxImageUDP>("image");
  expectRows<RxAudioUDP>("audio");
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
  EXPECT_EQ(makeCGRect(Params{"1", "2", "3"}), std::nullopt);
  EXPECT_EQ(makeCGRect(Params{"1", "2", "3", "4", "5"}), std::nullopt);
  EXPECT_EQ(makeCGRect(std::nullopt), std::nullopt);
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

}  // namespace tarnwick::test
