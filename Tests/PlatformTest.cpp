#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <locale>
#include <stdexcept>
#include <thread>
#include <unordered_set>

#include "Tarnwick/Platform/Arithmetic.hpp"
#include "Tarnwick/Platform/DispatchSemaphore.hpp"
#include "Tarnwick/Platform/FatalError.hpp"
#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Platform/Text.hpp"
#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Support.hpp"

namespace tarnwick::test {
namespace {

using Limits = std::numeric_limits<std::int64_t>;
using Texts = std::vector<std::string_view>;

/// Long enough for most of what must not happen to happen, if it can.
constexpr std::chrono::milliseconds moment{30};

constexpr double infinity = std::numeric_limits<double>::infinity();

void runAtOnce(const std::vector<std::function<void()>>& bodies) {
  std::vector<std::thread> threads(bodies.begin(), bodies.end());
  for (std::thread& thread : threads) thread.join();
}

// --- Text ---

TEST(Text, TellsWellFormedUTF8WhereverItStands) {
  const Texts whole = split(
      "\x7F \xC2\x80 \xDF\xBF \xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBF "
      "\xF0\x90\x80\x80 \xF1\x80\x80\x80 \xF4\x8F\xBF\xBF",
      " ");
  Texts broken = split(
      "\x80 \xBF \xC0\x80 \xC1\xBF \xE0\x80\x80 \xE0\x9F\xBF \xED\xA0\x80 \xED\xBF\xBF \xFE \xFF "
      "\xF0\x8F\xBF\xBF \xF4\x90\x80\x80 \xF5\x80\x80\x80 \xC2\xC2\x80 \xE1\x80\xC0",
      " ");
  for (const auto text : whole) {
    for (std::size_t size = 1; size < text.size(); ++size) broken.push_back(text.substr(0, size));
  }
  for (std::size_t before = 0; before <= 17; ++before) {
    for (std::size_t behind = 0; behind <= 9; ++behind) {
      const auto isValid = [&](std::string_view text) {
        return isValidUTF8(std::string(before, 'a').append(text) + std::string(behind, 'z'));
      };
      for (const auto text : whole) EXPECT_TRUE(isValid(std::string(text).append(text))) << text;
      for (const auto text : broken) EXPECT_FALSE(isValid(text)) << text;
    }
  }
}

TEST(Text, SplitsAtEachSeparatorAndDropsEmptyFields) {
  for (const char* text : {"a|b ~c", "|a||b ~c", "a~b ~~c|~", "~a|~b |c~"}) {
    EXPECT_EQ(split(text, "|~"), (Texts{"a", "b ", "c"})) << text;
    EXPECT_EQ(firstField(text, "|~"), "a") << text;
  }
  for (const char* text : {"", "|", "|~~|"}) {
    EXPECT_TRUE(split(text, "|~").empty() && firstField(text, "|~").empty()) << text;
  }
}

TEST(Text, ParsesIntegersStrictly) {
  const auto expect = [](std::optional<std::int64_t> number, std::string_view texts) {
    for (const auto text : split(texts, " ")) EXPECT_EQ(parseInteger(text), number) << text;
  };
  expect(5, "5 +5 005");
  expect(-5, "-5 -05");
  expect(Limits::max(), "9223372036854775807 +9223372036854775807");
  expect(Limits::min(), "-9223372036854775808");
  expect({}, "9223372036854775808 -9223372036854775809 99999999999999999999");
  expect({}, "+ - +-5 -+5 ++5 1e3 5. 0x5 5- \xD9\xA3");
  for (const char* text : {"", " 5", "5 ", "5\n"}) EXPECT_EQ(parseInteger(text), std::nullopt);
}

void expectNumbersInText() {
  const auto expect = [](std::optional<double> number, std::string_view texts) {
    for (const auto text : split(texts, " ")) EXPECT_EQ(parseFloat(text), number) << text;
  };
  const std::string zeros(400, '0');
  expect(1, "+1 1e0 10E-1 1" + zeros + "e-400 0." + zeros + "1e+401");
  expect(-0.5, "-.5 -0.5 -5e-1");
  expect(5, "5. 5.0");
  expect(16777216, "16777217 16777217.0000");
  expect(0x1.000002p0, "1.00000005960464477539062500000000001");  // half-way, and a little more
  expect(std::numeric_limits<float>::max(), "3.4028235e38");
  expect(infinity, "inf INFINITY +Inf 1e39 1" + zeros + " 1" + zeros + "e-300");
  expect(infinity, "1e99999999999999999999 1e9223372036854775807");
  expect(-infinity, "-iNfinitY -1e39");
  expect(0, "0e999999 1e-60 -1e-60 0." + zeros + "1 0." + zeros + "1e300");
  expect(0, "1e-99999999999999999999 1e-9223372036854775807 1e-9223372036854775808");
  expect({}, "+ . e5 1e 1e+ +-1 ++1 1,5 0x10 0x1p3 infinit nan(1) nan() nanx 1f");
  for (const char* text : {"", " 1", "1 "}) EXPECT_EQ(parseFloat(text), std::nullopt);
  for (const char* text : {"nan", "NaN", "+NAN", "-nan"}) {
    EXPECT_TRUE(std::isnan(parseFloat(text).value_or(0))) << text;
  }
  EXPECT_EQ(shortestDecimal(0.0) + " " + shortestDecimal(1440.0), "0.0 1440.0");
  EXPECT_EQ(shortestDecimal(0.9765625F) + " " + shortestDecimal(-0.1F), "0.9765625 -0.1");
  EXPECT_EQ(shortestDecimal(1e20), "100000000000000000000.0");
  EXPECT_EQ(shortestDecimal(9.2e18), "9200000000000000000.0");
  for (const float value : {std::numeric_limits<float>::lowest(), 1e-45F, 16777216.0F, 1e-7F}) {
    EXPECT_EQ(parseFloat(shortestDecimal(value)), value);
    EXPECT_EQ(shortestDecimal(value).find('e'), std::string::npos);
  }
}

struct Comma : std::numpunct<char> {
  [[nodiscard]] char do_decimal_point() const override { return ','; }
};

TEST(Text, ReadsAndWritesNumbersAlikeInEveryLocale) {
  expectNumbersInText();
  std::locale::global(std::locale(std::locale(), std::make_unique<Comma>().release()));
  for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "nl_NL.UTF-8"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) break;  // where the system has one
  }
  expectNumbersInText();
  std::locale::global(std::locale::classic());
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

// --- Main queue ---

struct MainQueue : testing::Test {
  [[nodiscard]] bool isReadable() const {
    pollfd entry{queue.fileDescriptor(), POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
  }
  auto mark(int number) {
    return [this, number] { order.push_back(number); };
  }

  DispatchQueue& queue = DispatchQueue::main();
  std::vector<int> order;  // unguarded: two blocks at once would be a race
};

TEST_F(MainQueue, RunsWhatWaitsInOrderAndLeavesTheRest) {
  queue.async(mark(0));
  EXPECT_TRUE(isReadable());
  queue.async([&] {
    EXPECT_FALSE(isReadable());
    queue.async(mark(2));
    EXPECT_EQ(queue.drain(), 0U);
    mark(1)();
  });
  for (const std::size_t count : {2U, 1U}) {
    EXPECT_TRUE(isReadable());
    EXPECT_EQ(queue.drain(), count);
  }
  EXPECT_FALSE(isReadable());
  EXPECT_EQ(queue.drain(), 0U);
  EXPECT_EQ(order, (std::vector{0, 1, 2}));
}

TEST_F(MainQueue, LetsAnExceptionPassAndKeepsTheRest) {
  queue.async([] { throw std::runtime_error("block"); });
  queue.async(mark(0));
  EXPECT_THROW(queue.drain(), std::runtime_error);
  EXPECT_TRUE(order.empty() && isReadable());
  EXPECT_EQ(queue.drain(), 1U);
}

TEST_F(MainQueue, RunsUntilStopped) {
  queue.stop();
  queue.run();
  DispatchSemaphore ran;
  std::thread runner([this] { queue.run(); });
  for (int i = 0; i < 3; ++i) {
    queue.async([&] { ran.signal(); });
    EXPECT_TRUE(ran.wait(deadline));
  }
  queue.stop();
  runner.join();
}

TEST_F(MainQueue, LetsOneThreadDrainAtATime) {
  std::atomic<std::size_t> drainers = 0, ran = 0;
  DispatchSemaphore next;
  queue.async([&] {
    EXPECT_TRUE(eventually([&] { return drainers == 2; }));
    EXPECT_FALSE(next.wait(moment));
  });
  queue.async([&] { next.signal(); });
  for (int i = 0; i < 500; ++i) queue.async([this, mark = mark(i)] { queue.async(mark); });
  const auto drainAll = [&] {
    ++drainers;
    EXPECT_TRUE(eventually([&] { return (ran += queue.drain()) == 1002; }));
  };
  runAtOnce({drainAll, drainAll});
  EXPECT_TRUE(order.size() == 500 && std::is_sorted(order.begin(), order.end()));
}

// --- Operations ---

struct Work : NSOperation {
  explicit Work(std::function<void(Work&)> body) : body_(std::move(body)) {}
  void main() override { body_(*this); }

 private:
  std::function<void(Work&)> body_;
};

/// Notes each change of Executing and Finished with the value before (<) and after (>).
void observe(NSOperation& operation, std::string& notes) {
  operation.addObserver([&](const NSOperation& changed, std::string_view key, auto change) {
    const bool value = key == "isFinished" ? changed.isFinished() : changed.isExecuting();
    notes += key.substr(2, 1);
    notes += change == NSOperation::Change::will ? "<" : ">";
    notes += std::to_string(value) + " ";
  });
  operation.setCompletionBlock([&] { notes += "done "; });
}

TEST(Operation, AnnouncesEveryAssignment) {
  std::string notes;
  Work plain([&](Work&) { notes += "main "; });
  observe(plain, notes);
  plain.start();
  EXPECT_EQ(std::exchange(notes, ""), "E<0 E>1 main E<1 E>0 F<0 F>1 done ");
  BaseStreamOperation stream;
  observe(stream, notes);
  for (const bool value : {false, true, true, false}) stream.executing(value);
  EXPECT_EQ(std::exchange(notes, ""), "E<0 E>0 E<0 E>1 E<1 E>1 E<1 E>0 ");
  for (const bool value : {false, true, true, false, true}) stream.finish(value);
  EXPECT_EQ(notes, "F<0 F>0 F<0 F>1 done F<1 F>1 F<1 F>0 F<0 F>1 ");
}

struct OperationQueue : testing::Test {
  OperationQueue() { queue->setMaxConcurrentOperationCount(1); }
  ~OperationQueue() override {
    for (const auto& work : added) EXPECT_TRUE(eventually([&] { return work.expired(); }));
  }
  void add(std::function<void(Work&)> body) {
    const auto work = std::make_shared<Work>(std::move(body));
    added.emplace_back(work);
    queue->addOperation(work);
  }

  DispatchSemaphore done;
  std::atomic<int> completions = 0;
  std::vector<std::weak_ptr<Work>> added;
  std::shared_ptr<NSOperationQueue> queue = std::make_shared<NSOperationQueue>();
  // Its main() does nothing: the test reports its end.
  std::shared_ptr<BaseStreamOperation> pending = std::make_shared<BaseStreamOperation>();
};

TEST_F(OperationQueue, RunsOneAfterAnother) {
  std::vector<int> order;  // unguarded: two at once would be a race
  for (int i = 0; i < 200; ++i) add([&, i](Work&) { order.push_back(i); });
  add([&](Work&) { done.signal(); });
  ASSERT_TRUE(done.wait(deadline));
  EXPECT_TRUE(order.size() == 200 && std::is_sorted(order.begin(), order.end()));
}

TEST_F(OperationQueue, HoldsThePlaceUntilTheEndIsReportedAndReleasesBeforeTheNext) {
  const std::weak_ptr<NSOperation> operation = pending;
  // The block holds its own operation, and must not keep it.
  pending->setCompletionBlock([this, own = pending] { ++completions; });
  queue->addOperation(pending);
  add([this, operation](Work&) {
    done.signal();
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(eventually([&] { return operation.expired(); }));
  });
  pending->executing(false);
  EXPECT_FALSE(done.wait(moment));
  std::exchange(pending, nullptr)->finish(true);
  ASSERT_TRUE(done.wait(deadline));
}

TEST_F(OperationQueue, CancelsWhatWaitsAndWhatRuns) {
  add([&](Work& running) {
    done.signal();
    EXPECT_TRUE(eventually([&] { return running.isCancelled(); }));
  });
  add([](Work& waiting) { EXPECT_TRUE(waiting.isCancelled()); });
  ASSERT_TRUE(done.wait(deadline));
  queue->cancelAllOperations();
  add([](Work& later) { EXPECT_FALSE(later.isCancelled()); });
}

TEST_F(OperationQueue, OutlivesItsLastReference) {
  queue->addOperation(pending);
  for (int i = 0; i < 3; ++i) add([&](Work&) { done.signal(); });
  // The queue's own thread runs and releases the block, which is the last to hold the queue.
  pending->setCompletionBlock([this, last = std::exchange(queue, nullptr)] { ++completions; });
  for (int i = 0; i < 2; ++i) pending->finish(true);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(done.wait(deadline));
  EXPECT_EQ(completions, 1);
}

TEST_F(OperationQueue, RunsAsManyAtOnceAsItMay) {
  std::atomic<int> begun = 0;
  const auto meet = [&](Work&) {
    ++begun;
    EXPECT_TRUE(eventually([&] { return begun == 2; }));
    done.signal();
  };
  queue->setMaxConcurrentOperationCount(0);
  for (int i = 0; i < 2; ++i) add(meet);
  EXPECT_FALSE(done.wait(moment));
  queue->setMaxConcurrentOperationCount(2);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(done.wait(deadline));
  queue->setMaxConcurrentOperationCount(0);
  add([&](Work&) { done.signal(); });
  EXPECT_FALSE(done.wait(moment));
  queue->setMaxConcurrentOperationCount(-1);
  EXPECT_TRUE(done.wait(deadline));
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
