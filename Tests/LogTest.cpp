#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <unordered_set>

#include "Tarnwick/Platform/Arithmetic.hpp"
#include "Tarnwick/Platform/FatalError.hpp"
#include "Tests/Support.hpp"

namespace tarnwick::test {

using Limits = std::numeric_limits<std::int64_t>;

constexpr double infinity = std::numeric_limits<double>::infinity();

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

/// Runs `body` with standard output redirected to standard error, which a death test reads.
template <typename Body>
void withObservedOutput(Body body) {
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  body();
  std::exit(0);
}

void logLong(const std::string& end) { logLine(std::string(300'000, 'x') + end); }

TEST_F(Fatal, LetsHeldBackOutputOut) {
  const auto fail = [] {
    std::fputs("held back", stdout);
    fatalError("text");
  };
  EXPECT_DEATH(withObservedOutput(fail), testing::Eq("Fatal error: text\nheld back"));
  EXPECT_DEATH(withObservedOutput([=] { logLong("logged"), fail(); }),
               testing::ContainsRegex("logged\n.*held back$"));
#if !defined(__SANITIZE_THREAD__)  // its abort() flushes, too
  const auto failUnread = [=] {
    const Output output(true);
    for (int i = 0; i < 5; ++i) logLong("");
    fail();
  };
  EXPECT_DEATH(failUnread(), says("text"));
#endif
}

TEST_F(Fatal, LogsUntilTheProcessEnds) {
  const auto end = [] {
    std::atexit([] { logLong("late"); });
    logLine("parent");
    flushLog();
    if (fork() == 0) {
      logLine("child");
      _exit(0);
    }
    wait(nullptr);
    logLong("last");
  };
  EXPECT_EXIT(withObservedOutput(end), testing::ExitedWithCode(0),
              testing::ContainsRegex("parent\nchild\nx*last\nx*late\n$"));
}

TEST(Log, NeverMixesLines) {
  Output output;
  const auto lineOf = [](char letter) { return std::string(200, letter); };
  const auto log = [&](char letter) {
    for (int i = 0; i < 400; ++i) logLine(lineOf(letter));
  };
  {
    const std::jthread a(log, 'a'), b(log, 'b');
    for (int i = 0; i < 400; ++i) std::puts(lineOf('c').c_str()), std::fflush(stdout);
  }
  logLong("");
  EXPECT_TRUE(output.awaitLine(std::string(300'000, 'x')));
  for (const char letter : {'a', 'b', 'c'}) {
    EXPECT_EQ(std::count(output.lines().begin(), output.lines().end(), lineOf(letter)), 400);
  }
}

TEST(Log, DropsLinesWhileNobodyReads) {
  Output output(true);
  const auto line = [](std::size_t i) {
    return std::to_string(1'000 + i) + std::string(1'000, '.');
  };
  for (std::size_t i = 0; i < 3'000; ++i) logLine(line(i));
  EXPECT_FALSE(flushLog(std::chrono::milliseconds(1)));
  output.beginReading();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(flushLog(deadline) && std::chrono::steady_clock::now() < start + deadline);
  logLine("end");
  EXPECT_TRUE(output.awaitLine("end"));
  const std::vector<std::string>& lines = output.lines();
  EXPECT_TRUE(lines.size() > 1'040 && lines.size() < 1'300);  // 1 MB, and the contents of the pipe
  EXPECT_TRUE(std::is_sorted(lines.begin(), lines.end()));
  for (std::size_t i = 0; i < 1'000; ++i) EXPECT_EQ(lines[i].size(), 1'004);
}

TEST_F(Fatal, IsNoClosedPipe) {
  const auto log = [] {
    int ends[2]{};
    std::fflush(stdout);
    const bool isClosed = pipe(ends) != -1 && close(ends[0]) != -1;
    dup2(ends[1], STDOUT_FILENO);
    logLine("to nobody");
    _exit(isClosed && flushLog() ? 0 : 1);
  };
  EXPECT_EXIT(log(), testing::ExitedWithCode(0), "");
}

TEST_F(Fatal, NamesTheCasesOfUDPError) {
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
    EXPECT_DEATH(std::ignore = UDPError(static_cast<UDPError::Case>(value)),
                 says("Unexpectedly found nil while unwrapping an Optional value"));
  }
}

}  // namespace tarnwick::test
