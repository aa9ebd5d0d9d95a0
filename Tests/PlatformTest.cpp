#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <locale>

#include "Tarnwick/Platform/DataStore.hpp"
#include "Tarnwick/Platform/Text.hpp"
#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Support.hpp"

namespace tarnwick::test {
namespace {

// --- Text ---

// What is read as text and as numbers, and what is not: see Fuzzing/FuzzText.cpp and its seeds,
// whose texts are lines.

struct Comma : std::numpunct<char> {
  [[nodiscard]] char do_decimal_point() const override { return ','; }
};

TEST(Text, ReadsAndWritesNumbersAlikeInEveryLocale) {
  std::locale::global(std::locale(std::locale(), std::make_unique<Comma>().release()));
  for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "nl_NL.UTF-8"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) break;  // where the system has one
  }
  EXPECT_EQ(parseFloat("-1.5e3"), -1500.0F);
  EXPECT_EQ(parseFloat("1,5"), std::nullopt);
  EXPECT_TRUE(!parseInteger("5\n") && !parseFloat("5\n"));
  EXPECT_EQ(shortestDecimal(1440.0) + " " + shortestDecimal(-0.1F), "1440.0 -0.1");
  EXPECT_EQ(shortestDecimal(1e20), "100000000000000000000.0");
  std::locale::global(std::locale::classic());
}

TEST(Text, SplitsInTimeInProportionToItsLength) {
  std::string text = "wave";
  while (text.size() < 2'000'000) text += "~a";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(messageFields(text).size(), 999'999U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, deadline);
  EXPECT_EQ(commandFields(text).size(), 8U);  // more than any command has
}

TEST(Response, HasElevenRawValues) {
  for (std::uint8_t i = 0; i < 20; ++i) EXPECT_EQ(rxResponseFromRawValue(i).has_value(), i < 11);
}

// --- The store of datagrams ---

TEST(DataStore, GivesMemoryAgainAndKeepsNoMoreThanItMay) {
  DataStore store;
  Data first = store.copy(Data(1000, 7));
  EXPECT_EQ(first, Data(1000, 7));
  const std::uint8_t* const memory = first.data();
  store.keep(std::move(first));
  const Data second = store.copy(Data(1024, 9));
  EXPECT_EQ(second, Data(1024, 9));
  EXPECT_EQ(second.data(), memory);
  EXPECT_EQ(store.keptBytes(), 0U);
  for (int i = 0; i < 100; ++i) store.keep(Data(std::size_t{1} << 20));
  EXPECT_EQ(store.keptBytes(), DataStore::mostBytes);
  for (int i = 0; i < 100; ++i) EXPECT_GE(store.room(900'000).capacity(), 900'000U);
  EXPECT_EQ(store.keptBytes(), 0U);
  EXPECT_EQ(store.room(DataStore::mostBytes + 1).size(), 0U);
}

TEST(DataStore, LetsALaterStreamTakeThePlaceOfAnEarlierOne) {
  DataStore store;
  for (int i = 0; i < 40'000; ++i) store.keep(Data(1024));
  EXPECT_EQ(store.keptBytes(), DataStore::mostBytes);
  for (int i = 0; i < 3; ++i) store.keep(Data(65'536));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(store.room(65'500).capacity(), 65'536U);
  EXPECT_EQ(store.keptBytes(), DataStore::mostBytes - std::size_t{3} * 65'536);
}

}  // namespace
}  // namespace tarnwick::test
