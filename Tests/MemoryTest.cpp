#include <gtest/gtest.h>

#include "Tests/Pictures.hpp"
#include "Tests/Shortage.hpp"
#include "Tests/Stream.hpp"

// Makes each allocation for an object fail in turn. The next object must arrive whole.

namespace tarnwick::test {

std::deque<Data> waiting;  // the datagrams that recieve() returns

/// Makes the n-th allocation from `act` until `isOver` fail. Returns false if there are fewer.
bool fails(std::int64_t n, auto act, auto isOver) {
  const int before = failedAllocations;
  allocationsUntilFailure = n - 1;
  act();
  EXPECT_TRUE(eventually(isOver));
  allocationsUntilFailure = -1;
  return failedAllocations != before && !testing::Test::HasFailure();
}

// Replace UDPServer::recieve() and UDPServer::clearRxQueue().
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
    return this->receiver.use_count() == owners;  // no dropped object holds it
  };
  // Log lines allocate in some rounds only.
  for (int round = 0; round < 10 && !this->HasFailure(); ++round) {
    std::int64_t n = 0;
    do {
      this->say(3);
      this->hear();
      auto arrived = this->application->objects.await();
      if (arrived == smallObject<TypeParam>(2)) arrived = this->application->objects.await();
      EXPECT_EQ(arrived, smallObject<TypeParam>(3)) << n;
      this->say(1);
      waiting.pop_back();  // stays incomplete: later bytes must not complete it
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
  std::ignore = receiver->processMessageForResponse();  // handles "End"
  EXPECT_TRUE(waiting.empty());
}

TEST(SenderMemory, RunsOut) {
  Peer peer;
  const auto sender = TxImageUDP::create("sender", "127.0.0.1", peer.port(), 65500);
  sender->beginOperation();
  EXPECT_EQ(peer.hearText(), "starting");
  std::int64_t n = 0;
  int lonelyHeaders = 0;  // at most one: the client's queue had no memory for the bytes
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
             large = NSImage::fromBitmap(picture(1025, 1024));  // scaled in two parts
  const Data file = *source->pngRepresentation(), before = target->bitmap()->pixels;
  const CGSize size{7, 9};
  const CGRect area{{}, size};
  std::shared_ptr<NSImage> image;
  std::optional<Data> encoded;
  const auto encode = [&] { encoded = source->jpegRepresentation(0.5F); };
  const auto draw = [&] { target->draw(*source, {{}, {20, 10}}, area), image = target; };
  int thrown = 0;
  /// Makes the allocation after the first `allocations` fail. Returns true if `make` needs no more.
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
           {[&] { image = NSImage::create(size); }, 1},  // if the object itself has no memory
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
  EXPECT_TRUE(isMade(encode, 1));  // copies the cached file
}

}  // namespace tarnwick::test
