#include <gtest/gtest.h>

#include <clocale>
#include <ctime>
#include <locale>

#include "Tarnwick/Platform/Concurrently.hpp"
#include "Tarnwick/Platform/DataStore.hpp"
#include "Tarnwick/Platform/Text.hpp"
#include "Tests/Shortage.hpp"
#include "Tests/Support.hpp"

namespace tarnwick::test {

// Fuzzing/FuzzText.cpp and its seeds test which texts and numbers are valid.

struct Comma : std::numpunct<char> {
  [[nodiscard]] char do_decimal_point() const override { return ','; }
};

TEST(Text, ReadsAndWritesNumbersAlikeInEveryLocale) {
  std::locale::global(std::locale(std::locale(), std::make_unique<Comma>().release()));
  for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "nl_NL.UTF-8"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) break;  // if installed
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
  const std::clock_t start = std::clock();  // of this process alone, on a busy machine, too
  EXPECT_EQ(messageFields(text).size(), 999'999U);
  EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
  EXPECT_EQ(commandFields(text).size(), 8U);  // more than any command has
}

TEST(Response, HasElevenRawValues) {
  for (std::uint8_t i = 0; i < 20; ++i) EXPECT_EQ(rxResponseFromRawValue(i).has_value(), i < 11);
}

TEST(DataStore, GivesMemoryAgain) {
  DataStore store;
  Data first = store.copy(Data(1000, 7));
  EXPECT_EQ(first, Data(1000, 7));
  const std::uint8_t* const memory = first.data();
  store.keep(std::move(first));
  const Data second = store.copy(Data(1024, 9));
  EXPECT_EQ(second, Data(1024, 9));
  EXPECT_EQ(second.data(), memory);
  EXPECT_EQ(store.keptBytes(), 0U);
  EXPECT_EQ(store.room(DataStore::mostBytes + 1).size(), 0U);
}

TEST(DataStore, KeepsWhatIsNeitherTooSmallNorTooLarge) {
  for (const auto& [size, kept] : {std::pair<std::size_t, std::size_t>{511, 0},
                                   {512, 512},
                                   {DataStore::mostBytes, DataStore::mostBytes},
                                   {DataStore::mostBytes + 1, 0},
                                   {2 * DataStore::mostBytes, 0}}) {
    DataStore store;
    Data data;
    data.reserve(size);
    store.keep(std::move(data));
    EXPECT_EQ(store.keptBytes(), kept) << size;
  }
}

TEST(DataStore, LetsALaterStreamTakeThePlaceOfTheLargestEarlierOne) {
  constexpr std::size_t kilobyte = 1024, half = DataStore::mostBytes / 2;
  DataStore store;
  for (int round = 0; round < 2; ++round) {
    for (std::size_t i = 0; i < 40'000; ++i) store.keep(Data(kilobyte));
    EXPECT_EQ(store.keptBytes(), DataStore::mostBytes);
    for (std::size_t i = 0; i < half / 65'536; ++i) store.keep(Data(65'536));
    EXPECT_EQ(store.keptBytes(), DataStore::mostBytes);
    std::ignore = store.room(kilobyte);
    store.keep(Data(4 * kilobyte));  // replaces one of the class with the largest total
    EXPECT_EQ(store.keptBytes(), DataStore::mostBytes - 61 * kilobyte);
    for (std::size_t i = 1; i < half / 65'536; ++i) {
      EXPECT_EQ(store.room(65'500).capacity(), 65'536U);
    }
    EXPECT_EQ(store.keptBytes(), half + 3 * kilobyte);
    std::ignore = store.room(4 * kilobyte);
    while (store.keptBytes() > 0) std::ignore = store.room(kilobyte);
  }
}

struct MainQueue : testing::Test {
  [[nodiscard]] bool isReadable() const {
    pollfd entry{queue.fileDescriptor(), POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
  }
  auto mark(int number) {
    return [this, number] { order.push_back(number); };
  }

  static constexpr std::chrono::milliseconds pause{30};
  DispatchQueue& queue = DispatchQueue::main();
  std::vector<int> order;  // no lock: concurrent blocks would be a data race
};

TEST_F(MainQueue, RunsWhatWaitsInOrderAndLeavesTheRest) {
  queue.async([&] {
    EXPECT_FALSE(isReadable());  // although a block waits: this drain() runs it
    queue.async(mark(2));
    EXPECT_TRUE(isReadable());
    EXPECT_EQ(queue.drain(), 0U);
    mark(0)();
  });
  EXPECT_TRUE(isReadable());
  queue.async(mark(1));
  for (const std::size_t count : {2U, 1U}) {
    EXPECT_TRUE(isReadable());
    EXPECT_EQ(queue.drain(), count);
  }
  EXPECT_FALSE(isReadable());
  EXPECT_EQ(queue.drain(), 0U);
  EXPECT_EQ(order, (std::vector{0, 1, 2}));
  queue.async(mark(3));
  char taken = 0;  // as by an application that wrongly reads from it
  EXPECT_EQ(read(queue.fileDescriptor(), &taken, 1), 1);
  EXPECT_EQ(queue.drain(), 1U);
}

TEST_F(MainQueue, LetsAnExceptionPassAndKeepsTheRest) {
  queue.async([] { throw std::runtime_error("block"); });
  queue.async(mark(0));
  EXPECT_THROW(queue.drain(), std::runtime_error);
  EXPECT_TRUE(order.empty() && isReadable());
  EXPECT_EQ(queue.drain(), 1U);
}

TEST_F(MainQueue, ChangesNothingWhenNoMemoryIsLeft) {
  for (int i = 0; i < 100; ++i) {  // async() allocates in some rounds only
    isMemoryLeft = false;
    try {
      queue.async([] {});
      queue.drain();
    } catch (const std::bad_alloc&) {
    }
    isMemoryLeft = true;
    EXPECT_FALSE(isReadable());
  }
}

TEST_F(MainQueue, RunsUntilStopped) {
  queue.stop();
  queue.run();
  DispatchSemaphore ran;
  std::thread runner([this] { queue.run(); });
  for (int i = 0; i < 3; ++i) {
    std::this_thread::sleep_for(pause);  // until it probably waits
    queue.async([&] { ran.signal(); });
    EXPECT_TRUE(ran.wait(deadline));
  }
  queue.stop();
  runner.join();
}

TEST_F(MainQueue, LetsOneThreadDrainAtATime) {
  for (const std::size_t count : {0U, 500U}) {
    std::atomic<std::size_t> drainers = 0, ran = 0;
    DispatchSemaphore next;
    queue.async([&] {
      EXPECT_TRUE(eventually([&] { return drainers == 2; }));
      EXPECT_FALSE(next.wait(pause));
    });
    queue.async([&] { next.signal(); });
    for (std::size_t i = 0; i < count; ++i) {
      queue.async([this, mark = mark(static_cast<int>(i))] { queue.async(mark); });
    }
    concurrently(2, [&](std::size_t) {
      ++drainers;
      EXPECT_TRUE(eventually([&] { return (ran += queue.drain()) == 2 * count + 2; }));
    });
    EXPECT_TRUE(order.size() == count && std::is_sorted(order.begin(), order.end()));
  }
}

}  // namespace tarnwick::test
