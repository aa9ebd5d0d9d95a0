#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <locale>
#include <thread>
#include <unordered_set>

#include "Tarnwick/Platform/Arithmetic.hpp"
#include "Tarnwick/Platform/DataStore.hpp"
#include "Tarnwick/Platform/FatalError.hpp"
#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Platform/Text.hpp"
#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Support.hpp"

namespace tarnwick::test {
namespace {

using Limits = std::numeric_limits<std::int64_t>;

constexpr double infinity = std::numeric_limits<double>::infinity();

void runAtOnce(const std::vector<std::function<void()>>& bodies) {
  std::vector<std::thread> threads(bodies.begin(), bodies.end());
  for (std::thread& thread : threads) thread.join();
}

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

// --- Fatal errors, log lines ---

struct Fatal : testing::Test {
  Fatal() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

auto says(const std::string& text) { return testing::Eq("Fatal error: " + text + "\n"); }

TEST_F(Fatal, NamesWhatDoesNotConvert) {
  const std::string reason = " value cannot be converted to Int because ";
  const auto expect = [&](double value, float narrow, const std::string& text) {
    EXPECT_DEATH((void)truncated(narrow), says("Float" + reason + text));
    EXPECT_DEATH((void)truncated(value), says("Double" + reason + text));
  };
  for (const double value : {std::nan(""), infinity, -infinity}) {
    expect(value, static_cast<float>(value), "it is either infinite or NaN");
  }
  expect(0x1p63, 0x1p63F, "the result would be greater than Int.max");
  expect(std::nextafter(-0x1p63, -infinity), std::nextafter(-0x1p63F, -0x1p64F),
         "the result would be less than Int.min");
}

TEST_F(Fatal, NamesOverflowAndWhatIsMissing) {
  EXPECT_DEATH((void)checkedSum(Limits::max(), 1), says("Arithmetic overflow"));
  EXPECT_DEATH((void)checkedSum(-1, Limits::min()), says("Arithmetic overflow"));
  EXPECT_DEATH((void)unwrapped(std::optional<int>()),
               says("Unexpectedly found nil while unwrapping an Optional value"));
  EXPECT_DEATH((void)element(std::vector<int>{1, 2}, 2), says("Index out of range"));
}

TEST(Arithmetic, KeepsWhatFits) {
  EXPECT_EQ(checkedSum(Limits::max() - 1, 1), Limits::max());
  EXPECT_EQ(checkedSum(Limits::min() + 1, -1), Limits::min());
  EXPECT_EQ(truncated(-0x1p63F), Limits::min());
  EXPECT_EQ(truncated(-0x1p63), Limits::min());
  EXPECT_EQ(truncated(0x1.fffffep62F), Limits::max() - ((1LL << 39) - 1));
  EXPECT_EQ(truncated(-2.9F), -2);
}

/// Runs `body` with standard output, which holds text back, going where a death test looks.
template <typename Body>
void withObservedOutput(Body body) {
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  body();
  _exit(0);
}

TEST_F(Fatal, LetsHeldBackOutputOut) {
  const auto fail = [] {
    std::fputs("held back", stdout);
    fatalError("text");
  };
  EXPECT_DEATH(withObservedOutput(fail), testing::Eq("Fatal error: text\nheld back"));
  EXPECT_EXIT(withObservedOutput([] { logLine("line"); }), testing::ExitedWithCode(0),
              testing::Eq("line\n"));
}

TEST(Log, NeverMixesLines) {
  const auto lineOf = [](char letter) { return std::string(200, letter); };
  const auto write = [=](char letter) {
    for (int i = 0; i < 400; ++i) logLine(lineOf(letter));
  };
  testing::internal::CaptureStdout();
  runAtOnce({[&] { write('a'); }, [&] { write('b'); }, [&] { write('c'); }});
  const std::string text = testing::internal::GetCapturedStdout();
  const auto lines = split(text, "\n");
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1200);
  for (const char letter : {'a', 'b', 'c'}) {
    EXPECT_EQ(std::count(lines.begin(), lines.end(), lineOf(letter)), 400);
  }
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

// --- UDPError ---

TEST(UDPError, NamesItsCases) {
  std::unordered_set<UDPError> different;
  std::int64_t rawValue = -999;
  for (const char* text :
       {"Could not obtain socket", "Could not bind socket", "Address string given is not valid",
        "operation in progress", "Could not setup socket for non-blocking operation",
        "Could not obtain thread lock"}) {
    const UDPError error = UDPError::fromRawValue(rawValue).value();
    EXPECT_EQ(error.localizedDescription(), text);
    EXPECT_STREQ(static_cast<const std::exception&>(error).what(), text);
    EXPECT_EQ(error.code().message(), text);
    EXPECT_EQ(error.code().value(), rawValue);
    EXPECT_STREQ(error.code().category().name(), "tarnwick::UDPError");
    const LocalizedError& base = error;
    EXPECT_FALSE(base.errorDescription() || base.failureReason() || base.recoverySuggestion() ||
                 base.helpAnchor());
    EXPECT_TRUE(different.insert(error).second && different.contains(UDPError(error)));
    EXPECT_EQ(error.rawValue(), rawValue++);
  }
  EXPECT_TRUE(UDPError::fromRawValue(-996) == UDPError::alreadyInProgress);
  for (const std::int64_t value : {std::int64_t{-1000}, std::int64_t{-993}, Limits::min()}) {
    EXPECT_FALSE(UDPError::fromRawValue(value)) << value;
  }
}

}  // namespace
}  // namespace tarnwick::test
