#include <gtest/gtest.h>

#include "Tests/Pictures.hpp"
#include "Tests/Shortage.hpp"
#include "Tests/Stream.hpp"

// Each allocation on the way of an object fails once: the process lives, and the next object
// arrives whole.

namespace tarnwick::test {

std::deque<Data> waiting;  // what a receiver's endpoint holds, as if it had come

/// Whether the n-th allocation of `act`, or of what it starts until `isOver`, came and failed.
bool fails(std::int64_t n, auto act, auto isOver) {
  const int before = failedAllocations;
  allocationsUntilFailure = n - 1;
  act();
  EXPECT_TRUE(eventually(isOver));
  allocationsUntilFailure = -1;
  return failedAllocations != before && !testing::Test::HasFailure();
}

// In place of UDPServer::recieve() and UDPServer::clearRxQueue().
std::optional<Data> recieve(UDPServer*) asm("__wrap__ZN8tarnwick9UDPServer7recieveEv");
std::optional<Data> recieve(UDPServer*) {
  std::optional<Data> datagram(std::move(waiting.front()));
  waiting.pop_front();
  return datagram;
}
void clearRxQueue(UDPServer*) asm("__wrap__ZN8tarnwick9UDPServer12clearRxQueueEv");
void clearRxQueue(UDPServer*) { waiting.clear(); }

template <typename Receiver>
struct Memory : testing::Test, Receiving<Receiver> {
  static void say(std::int64_t number) {
    const auto begin = smallFile().begin(), end = smallFile().end(),
               middle = begin + (end - begin) / 2;
    waiting.push_back(bytes(announcement<Receiver>(number, smallFile().size())));
    waiting.insert(waiting.end(), {{begin, middle}, {middle, end}});
  }
  void hear() {
    while (!waiting.empty()) std::ignore = this->receiver->processMessageForResponse();
    DispatchQueue::main().drain();
  }
};
using Kinds = testing::Types<RxVideoUDP, RxImageUDP, RxAudioUDP>;
TYPED_TEST_SUITE(Memory, Kinds);

TYPED_TEST(Memory, RunsOutForAReceiver) {
  this->application->onObject = [] { allocationsUntilFailure = -1; };
  const auto isOver = [this, owners = this->receiver.use_count()] {
    return this->receiver.use_count() == owners;  // what was dropped is gone
  };
  for (int round = 0; round < 10; ++round) {  // a log line allocates in some of them
    std::int64_t n = 0;
    do {
      this->say(3);
      this->hear();
      auto arrived = this->application->objects.await();
      if (arrived == smallObject<TypeParam>(2)) arrived = this->application->objects.await();
      EXPECT_EQ(arrived, smallObject<TypeParam>(3)) << n;
      this->say(1);
      waiting.pop_back();  // in progress: the bytes of the next object must not complete it
      this->hear();
      this->say(2);
    } while (fails(
        ++n, [this] { this->hear(); }, isOver));
  }
}

using ImageMemory = Memory<RxImageUDP>;
TEST_F(ImageMemory, IsFreedByTheEnd) {
  waiting.push_back(bytes("End"));
  say(1);
  std::ignore = receiver->processMessageForResponse();  // of "End" alone
  EXPECT_TRUE(waiting.empty());
}

TEST(SenderMemory, RunsOut) {
  Peer peer;
  const auto sender = TxImageUDP::create("sender", "127.0.0.1", peer.port(), 65500);
  sender->beginOperation();
  EXPECT_EQ(peer.hearText(), "starting");
  std::int64_t n = 0;
  int lonelyHeaders = 0;  // at most one: when the client's queue itself lacks memory for the bytes
  std::shared_ptr<NSImage> image;
  const auto send = [&](CGFloat number) {
    try {
      sender->send(image, {{number, 0}, {1, 1}}, 0, false, 0.5F);
    } catch (const std::bad_alloc&) {
    }
  };
  do {
    image = NSImage::create({1, 1});
    send(2);
    const Data file = image->jpegRepresentation(0.5F).value();
    int before = 0;
    while (peer.hear() != bytes(announcement<RxImageUDP>(2, file.size()))) ++before;
    EXPECT_TRUE(peer.hear() == file && (lonelyHeaders += before % 2) <= 1) << n;
    image = NSImage::create({1, 1});  // not encoded yet
  } while (fails(
      ++n, [&] { send(1); }, [&] { return image.use_count() == 1; }));
  sender->endOperation();
}

TEST(Image, IsAbsentOrAsItWasWhenMemoryIsShort) {
  const auto source = NSImage::fromBitmap(picture(40, 30)), target = NSImage::create({10, 20}),
             large = NSImage::fromBitmap(picture(1025, 1024));  // scaled in two halves
  const Data file = *source->pngRepresentation(), before = target->bitmap()->pixels;
  const CGSize size{7, 9};
  const CGRect area{{}, size};
  std::shared_ptr<NSImage> image;
  std::optional<Data> encoded;
  const auto encode = [&] { encoded = source->jpegRepresentation(0.5F); };
  const auto draw = [&] { target->draw(*source, {{}, {20, 10}}, area), image = target; };
  int thrown = 0;
  /// Calls `make` with one allocation failing after so many others; whether it needs no more.
  const auto isMade = [&](const auto& make, std::int64_t allocations) {
    allocationsUntilFailure = allocations;
    try {
      make();
    } catch (const std::bad_alloc&) {
      ++thrown;
    }
    return allocationsUntilFailure.exchange(-1) >= 0;
  };
  for (const auto& [make, mayThrow] : std::vector<std::pair<std::function<void()>, int>>{
           {[&] { image = NSImage::create(size); }, 1},  // without memory for the object itself
           {[&] { image = crop(*source, area); }, 1},
           {[&] { image = resize(*source, size); }, 1},
           {[&] { image = resize(*large, size); }, 1},
           {[&] { image = NSImage::fromData(file); }, 0},
           {[&] { encoded = source->pngRepresentation(); }, 0},
           {encode, 0},
           {draw, 1000}}) {
    bool isDone = false;
    for (std::int64_t i = thrown = 0; !isDone; i += 1 + i / 5) {
      image = nullptr;
      encoded = std::nullopt;
      isDone = isMade(make, i);
      EXPECT_EQ((image && image->bitmap()) || encoded, isDone) << i;
      EXPECT_TRUE(!image || mayThrow != 1 || image->size() == size);
      EXPECT_EQ(target->bitmap()->pixels == before, image != target);
    }
    EXPECT_LE(thrown, mayThrow);
  }
  EXPECT_TRUE(isMade(encode, 1));  // a copy of the last file
}

}  // namespace tarnwick::test
