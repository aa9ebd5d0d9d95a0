#include <sys/prctl.h>

#include "Tests/Endpoints.hpp"

namespace tarnwick::test {

using namespace std::chrono_literals;

using Clock = std::chrono::steady_clock;

TEST(Client, HoldsBackTheRestOfALongMessage) {
  Sending sending(1000);
  sending.client->beginOperation();
  const Data message = pattern(2500);
  sending.client->send(message);
  EXPECT_EQ(sending.peer.hear(), Data(message.begin(), message.begin() + 1000));
  EXPECT_TRUE(sending.peer.hearsNothing());
  sending.client->resetMessageQueue();
  sending.client->send("next");
  EXPECT_EQ(sending.peer.hear(), Data(message.begin() + 1000, message.begin() + 2000));
  EXPECT_EQ(sending.peer.hear(), Data(message.begin() + 2000, message.end()));
  EXPECT_EQ(sending.peer.hearText(), "next");
}

TEST(Client, EmptiesAFullQueueForTheNewestMessage) {
  for (const int count : {100, 101}) {
    Sending sending;
    for (int i = 1; i <= count; ++i) sending.client->send(std::to_string(i));
    sending.client->send("not \xFF text");  // dropped: the queue does not change
    const auto start = Clock::now();
    sending.client->beginOperation();
    for (int i = count == 101 ? 101 : 1; i <= count; ++i) {
      EXPECT_EQ(sending.peer.hearText(), std::to_string(i));
    }
    EXPECT_TRUE(count == 101 || Clock::now() - start >= 99ms);  // one per pass
    EXPECT_TRUE(sending.peer.hearsNothing());
  }
}

TEST(Client, SendsOneDatagramAMessageUnlessResetOrEnded) {
  Sending sending;
  sending.client->send("reset");
  sending.client->resetMessageQueue();
  sending.client->send("discarded");
  sending.client->endOperation();
  sending.client->send("sent");
  sending.client->beginOperation();
  for (const Data& data : {Data(), pattern(65500)}) sending.client->send(data);
  EXPECT_EQ(sending.peer.hearText(), "sent");
  for (const Data& data : {Data(), pattern(65500)}) EXPECT_EQ(sending.peer.hear(), data);
}

TEST(Client, RetriesWhatCannotBeSent) {
  Sending sending;
  sending.client->setBufferLimit(largest);
  sending.client->beginOperation();
  sending.client->send(pattern(100000));
  sending.client->send("behind");
  EXPECT_TRUE(sending.peer.hearsNothing());
  sending.client->setBufferLimit(60000);  // a lower limit applies at once
  EXPECT_EQ(sending.hearSize(), 60000);
  EXPECT_EQ(sending.hearSize(), 40000);
  EXPECT_EQ(sending.peer.hearText(), "behind");
}

TEST(Client, GivesAReplyToDelegateAndWaitingCaller) {
  Output output;
  Sending sending;
  sending.client->beginOperation();
  std::thread answering([&] {
    EXPECT_EQ(sending.peer.hearText(), "question");
    sending.peer.say("first");
  });
  std::optional<Data> answer;
  const auto keep = [&](std::optional<Data> data) { answer = std::move(data); };
  sending.client->send("question", [&](std::optional<Data> data) {
    keep(std::move(data));
    EXPECT_EQ(sending.listener->responses.await(), bytes("first"));
    sending.peer.sendBytes({});  // before send() returns
    EXPECT_EQ(sending.listener->responses.await(), Data());
  });
  answering.join();
  EXPECT_EQ(answer, bytes("first"));
  sending.client->send("again", keep);  // returns at once: the second reply is left over
  EXPECT_EQ(answer, Data());
  const auto start = Clock::now();
  const std::function<void(std::optional<Data>)> none;
  EXPECT_THROW(sending.client->send("and again", none), std::bad_function_call);
  EXPECT_TRUE(Clock::now() >= start + 1s && Clock::now() < start + 4s);
  sending.peer.say("late");
  EXPECT_EQ(sending.listener->responses.await(), bytes("late"));
  sending.client->send("once more", keep);
  EXPECT_EQ(answer, std::nullopt);
  sending.client->endOperation();
  EXPECT_TRUE(output.awaitLine("End Operation for client"));  // wakes the log's idle thread
}

TEST(Client, BeginsWithAnyLimitAndNoDelegate) {
  Sending sending(-5, nullptr);
  sending.client->beginOperation();
  for (int i = 0; i < 3; ++i) {
    sending.client->send("cut");
    EXPECT_EQ(sending.peer.hear(), Data());
    sending.peer.say("reply");
  }
}

TEST(Client, WaitsInVainOnItsOwnThread) {
  Sending sending;
  Mailbox<std::optional<Data>> answers;
  sending.listener->listen = [&](const Data&) {
    EXPECT_EQ(prctl(PR_GET_TIMERSLACK), 1);  // as for a thread of higher priority
    sending.client->send("?", [&](std::optional<Data> data) { answers.put(std::move(data)); });
  };
  sending.client->beginOperation();
  sending.client->send("hello");
  sending.peer.hear();
  sending.peer.say("hello");
  EXPECT_EQ(answers.await(), std::optional<std::optional<Data>>(std::optional<Data>()));
}

TEST(Client, FollowsWhoeverReplies) {
  Sending sending;
  sending.client->beginOperation();
  sending.client->send("hello");
  sending.peer.hear();
  Peer stranger(sending.peer.target());
  stranger.say("redirect");
  EXPECT_EQ(sending.listener->responses.await(), bytes("redirect"));
  sending.client->send("follow");
  EXPECT_EQ(stranger.hearText(), "follow");
}

}  // namespace tarnwick::test
