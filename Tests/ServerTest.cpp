#include <sys/prctl.h>

#include "Tests/Endpoints.hpp"

namespace tarnwick::test {

TEST(Server, QueuesInOrderOfArrivalAndDropsOnlyWhenAsked) {
  Output output;
  Serving serving;
  Mailbox<bool> queued;
  serving.responder->answer = [&] {
    queued.put(true);
    return std::nullopt;
  };
  serving.server->beginOperation();
  for (const char* text : {"one", "", "three", "four"}) serving.peer.say(text);
  for (int i = 0; i < 4; ++i) EXPECT_TRUE(queued.await());
  serving.server->endOperation();
  EXPECT_TRUE(eventually([&] { return isPortFree(serving.endpoint.second); }));
  logLine("end");
  EXPECT_TRUE(output.awaitLine("end"));
  EXPECT_EQ(output.lines().size(), 2);
  for (const char* text : {"one", "", "three"}) EXPECT_EQ(serving.await(), bytes(text));
  serving.server->clearRxQueue();
  EXPECT_EQ(serving.server->recieve(), std::nullopt);
}

TEST(Server, CutsDatagramsToTheLimit) {
  Serving serving(1024);
  serving.server->beginOperation();
  const auto receivedSize = [&](std::int64_t limit) {
    serving.server->setBufferLimit(limit);
    // The pass in progress may still use the old limit.
    for (int i = 0; i < 2; ++i) serving.peer.sendBytes(Data(2000));
    std::ignore = serving.await();
    return serving.await().size();
  };
  EXPECT_EQ(receivedSize(1024), 1024);
  EXPECT_EQ(receivedSize(largest), 1024);  // beginOperation() fixed the size of the buffer
  EXPECT_EQ(receivedSize(7), 7);
  EXPECT_EQ(receivedSize(std::numeric_limits<std::int64_t>::min()), 0);
}

TEST(Server, BeginsWithAnyLimitAndNoDelegate) {
  for (const auto& [limit, size] : {std::pair{largest, 65507U}, {-largest, 0U}}) {
    Serving serving(0, nullptr);
    serving.server->setBufferLimit(limit);
    serving.server->beginOperation();
    for (int i = 0; i < 2; ++i) serving.peer.sendBytes(pattern(65507));
    for (int i = 0; i < 2; ++i) EXPECT_EQ(serving.await(), pattern(size));
  }
}

TEST(Server, RepliesToWhoeverSpokeLast) {
  Output output;
  Serving serving(16);
  serving.responder->answer = [server = serving.server]() -> std::optional<Data> {
    EXPECT_EQ(prctl(PR_GET_TIMERSLACK), 1);  // as for a thread of higher priority
    auto datagram = server->recieve();
    if (datagram == bytes("silence")) return std::nullopt;
    if (datagram == bytes("nothing")) return Data();
    if (datagram == bytes("too much")) return Data(70'000);
    if (datagram == bytes("more")) return pattern(5000);  // longer than the limit
    return datagram;
  };
  Peer second(serving.endpoint.second);
  serving.server->beginOperation();
  EXPECT_TRUE(output.awaitLine("Receive process running for server"));
  serving.peer.say("ten bytes.");
  EXPECT_EQ(serving.peer.hearText(), "ten bytes.");
  EXPECT_TRUE(output.awaitLine("server sent response of length 10"));
  for (int i = 0; i < 3; ++i) {
    serving.peer.say("first");
    second.say("second");
    EXPECT_EQ(serving.peer.hearText() + second.hearText(), "firstsecond");
  }
  serving.server->setName("renamed");
  for (const char* text : {"silence", "too much", "nothing", "more"}) second.say(text);
  EXPECT_EQ(second.hear(), Data());
  EXPECT_EQ(second.hear(), pattern(5000));
  EXPECT_TRUE(output.awaitLine("renamed sent response of length 5000"));
  EXPECT_TRUE(serving.peer.hearsNothing());
  EXPECT_EQ(output.lines().size(), 4 + 6);
}

}  // namespace tarnwick::test
