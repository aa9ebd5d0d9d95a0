#include <gtest/gtest.h>

#include "Tests/Shortage.hpp"
#include "Tests/Support.hpp"

namespace tarnwick::test {

/// How long a test waits for an event that must not happen.
constexpr std::chrono::milliseconds moment{30};

struct Work : NSOperation {
  explicit Work(std::function<void(Work&)> run) : body(std::move(run)) {}
  void main() override { body(*this); }

  const std::function<void(Work&)> body;
};

/// Notes the value of Executing and Finished before (<) and after (>) each change.
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
  ~OperationQueue() override { EXPECT_TRUE(isIdle()); }
  void add(std::function<void(Work&)> body) {
    const auto work = std::make_shared<Work>([run = std::move(body)](Work& running) {
      isMemoryLeft = true;
      run(running);
      isMemoryLeft = false;  // between operations a worker must not allocate
    });
    work->addObserver([](auto&&...) {});
    added.emplace_back(work);
    queue->addOperation(work);
  }

  /// Waits until all added operations are released. Returns false after the deadline.
  bool isIdle() {
    const auto isReleased = [](const auto& work) { return work.expired(); };
    return eventually([&] { return std::ranges::all_of(added, isReleased); });
  }

  DispatchSemaphore done;
  std::atomic<int> completions = 0;
  std::vector<std::weak_ptr<Work>> added;
  std::shared_ptr<NSOperationQueue> queue = std::make_shared<NSOperationQueue>();
  // Its main() does nothing: the test reports its end.
  std::shared_ptr<BaseStreamOperation> pending = std::make_shared<BaseStreamOperation>();
};

TEST_F(OperationQueue, HoldsThePlaceUntilTheEndIsReportedAndReleasesBeforeTheNext) {
  const std::weak_ptr<NSOperation> operation = pending;
  // The block holds its own operation. This cycle must not keep the operation alive.
  pending->setCompletionBlock([this, own = pending, tester = std::this_thread::get_id()] {
    EXPECT_NE(std::this_thread::get_id(), tester);
    ++completions;
  });
  queue->addOperation(pending);
  add([this, operation](Work&) {
    done.signal();
    EXPECT_EQ(completions, 1);
    EXPECT_TRUE(eventually([&] { return operation.expired(); }));
  });
  pending->executing(false);
  queue->cancelAllOperations();
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
  // The block holds the last reference to the queue. The queue's own thread drops it.
  pending->setCompletionBlock([this, last = std::exchange(queue, nullptr)] { ++completions; });
  for (int i = 0; i < 2; ++i) pending->finish(true);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(done.wait(deadline));
  EXPECT_EQ(completions, 1);
}

TEST_F(OperationQueue, RunsInOrderAsManyAtOnceAsItMay) {
  for (const bool isLoweredWhileTwoRun : {true, false}) {
    queue->setMaxConcurrentOperationCount(2);  // also synchronises with the last round
    std::atomic<bool> mayEnd = false;
    std::atomic<int> next = 0;
    for (int i = 0; i < 2; ++i) {
      add([&](Work&) {
        done.signal();
        EXPECT_TRUE(eventually([&] { return mayEnd.load(); }));
      });
    }
    EXPECT_TRUE(done.wait(deadline) && done.wait(deadline));
    mayEnd = !isLoweredWhileTwoRun;
    EXPECT_TRUE(isLoweredWhileTwoRun || isIdle());
    queue->setMaxConcurrentOperationCount(1);
    for (int i = 0; i < (isLoweredWhileTwoRun ? 50 : 1); ++i) {
      add([&, i](Work&) {
        EXPECT_EQ(next, i);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        ++next;
      });
    }
    mayEnd = true;
    EXPECT_TRUE(isIdle());
  }
  queue->setMaxConcurrentOperationCount(0);
  add([&](Work&) { done.signal(); });
  EXPECT_FALSE(done.wait(moment));
  queue->setMaxConcurrentOperationCount(-1);
  EXPECT_TRUE(done.wait(deadline));
}

TEST_F(OperationQueue, KeepsAnIdleThreadUntilItIsToEnd) {
  const auto runsOnThreadThatRan = [this](int earlier) {
    add([this, earlier](Work&) {
      thread_local const std::shared_ptr<void> atEnd(nullptr, [this](auto) { done.signal(); });
      thread_local int runs = 0;
      EXPECT_EQ(runs++, earlier);
    });
    return isIdle();
  };
  for (const bool isCancelled : {false, true}) {
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(runsOnThreadThatRan(i));
    isCancelled ? queue->cancelAllOperations() : queue.reset(new NSOperationQueue);
    EXPECT_TRUE(done.wait(deadline));
  }
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(runsOnThreadThatRan(0) && done.wait(deadline));
}

TEST_F(OperationQueue, SurvivesAThreadThatCannotBeStartedAndMissingMemory) {
  pending->setCompletionBlock([this] { ++completions; });
  isMemoryLeft = false;
  EXPECT_THROW(queue->addOperation(pending), std::bad_alloc);
  isMemoryLeft = true;
  pending->finish(true);
  EXPECT_EQ(completions, 1);  // on this thread: it is in no queue
  {
    const ThreadShortage shortage;
    for (int i = 0; i < 2; ++i) add([this](Work&) { done.signal(); });
  }
  queue.reset();  // tries to start threads again
  EXPECT_TRUE(done.wait(deadline) && done.wait(deadline));
}

}  // namespace tarnwick::test
