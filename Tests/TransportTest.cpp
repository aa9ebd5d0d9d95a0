#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <thread>

#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Support.hpp"

#if defined(TARNWICK_TEST_FAULTS)
// The linker leads these calls of the library here, so that a test can let them fail.
std::atomic<bool> failSocket = false, failFcntl = false, failMutex = false;
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" {
int __real_socket(int, int, int);
int __wrap_socket(int domain, int type, int protocol) {
  return failSocket ? -1 : __real_socket(domain, type, protocol);
}
int __real_fcntl(int, int, int);
int __wrap_fcntl(int descriptor, int command, int value) {
  return failFcntl ? -1 : __real_fcntl(descriptor, command, value);
}
int __real_pthread_mutex_init(pthread_mutex_t*, const pthread_mutexattr_t*);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
  return failMutex ? ENOMEM : __real_pthread_mutex_init(mutex, attributes);
}
}
// NOLINTEND(bugprone-reserved-identifier)
#endif

namespace tarnwick::test {
namespace {

using namespace std::chrono_literals;

/// A delegate that runs what a test gives it.
struct Responder : UDPServerDelegate {
  std::function<std::optional<Data>()> answer = [] { return std::nullopt; };
  std::optional<Data> processMessageForResponse() override { return answer(); }
};

struct Listener : UDPClientDelegate {
  Mailbox<Data> responses;
  std::function<void(const Data&)> listen = [](const Data&) {};
  void receivedResponse(const Data& data) override {
    listen(data);
    responses.put(data);
  }
};

/// A server, its delegate, and a peer that talks to it.
struct Serving {
  explicit Serving(std::int64_t bufferSize = 65500)
      : endpoint(onFreePort(
            [&](auto free) { return UDPServer::create("server", free, bufferSize, responder); })) {}
  ~Serving() { server->endOperation(); }

  [[nodiscard]] Data await() const {
    std::optional<Data> datagram;
    EXPECT_TRUE(eventually([&] { return (datagram = server->recieve()).has_value(); }));
    return datagram.value_or(Data());
  }

  const std::shared_ptr<Responder> responder = std::make_shared<Responder>();
  const std::pair<std::shared_ptr<UDPServer>, std::uint16_t> endpoint;
  UDPServer* const server = endpoint.first.get();
  Peer peer{endpoint.second};
};

/// A client, its delegate, and the peer that it talks to.
struct Sending {
  explicit Sending(std::int64_t bufferSize = 65500)
      : client(UDPClient::create("client", "127.0.0.1", peer.port(), bufferSize, listener)) {}
  ~Sending() { client->endOperation(); }

  /// What the peer hears next, by length.
  std::size_t hearSize() { return peer.hear().value_or(Data()).size(); }

  Peer peer;
  const std::shared_ptr<Listener> listener = std::make_shared<Listener>();
  const std::shared_ptr<UDPClient> client;
};

template <typename Action>
std::optional<UDPError> errorOf(Action action) try {
  action();
  return std::nullopt;
} catch (const UDPError& error) {
  return error;
}

Data pattern(std::size_t size) {
  Data data(size);
  for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return data;
}

constexpr auto largest = std::numeric_limits<std::int64_t>::max();

// --- Set-up ---

TEST(SetUp, RefusesWhatIsTakenOrNoAddress) {
  const Peer holder;
  EXPECT_EQ(errorOf([&] { std::ignore = UDPServer::create("server", holder.port()); }),
            UDPError::bindSocket);
  for (const char* address : {"300.1.1.1", "localhost", "", "127.0.0.1x", "::1"}) {
    EXPECT_EQ(errorOf([&] { std::ignore = UDPClient::create("client", address, 1); }),
              UDPError::badAddress)
        << address;
  }
  for (const char* address : {"127.0.0.1", "10.1", "2130706433"}) {
    EXPECT_NE(UDPClient::create("client", address, 1), nullptr) << address;
  }
}

#if defined(TARNWICK_TEST_FAULTS)
TEST(SetUp, ReportsWhatTheSystemRefuses) {
  for (const auto& [fault, error] : {std::pair{&failSocket, UDPError::noSocket},
                                     {&failFcntl, UDPError::setupForNonBlocking},
                                     {&failMutex, UDPError::threadLock}}) {
    *fault = true;
    EXPECT_EQ(errorOf([] { std::ignore = UDPServer::create("server", 0); }), error);
    EXPECT_EQ(errorOf([] { std::ignore = UDPClient::create("client", "127.0.0.1", 1); }), error);
    *fault = false;
  }
}
#endif

TEST(SetUp, CapsTheBufferSizeAndNothingElse) {
  for (const auto& [asked, given] :
       {std::pair<std::int64_t, std::int64_t>{100000, 65500}, {1024, 1024}, {-5, -5}}) {
    EXPECT_EQ(Serving(asked).server->bufferLimit(), given);
    const Sending sending(asked);
    EXPECT_EQ(sending.client->bufferLimit(), given);
    sending.client->setBufferLimit(largest);
    EXPECT_EQ(sending.client->bufferLimit(), largest);
  }
}

TEST(SetUp, RefusesASecondStart) {
  Output output;
  const Serving serving;
  const Sending sending;
  serving.server->beginOperation();
  EXPECT_EQ(errorOf([&] { serving.server->beginOperation(); }), UDPError::alreadyInProgress);
  sending.client->beginOperation();
  EXPECT_TRUE(output.awaitLine("Begin Operation for client"));
  EXPECT_EQ(errorOf([&] { sending.client->beginOperation(); }), UDPError::alreadyInProgress);
  EXPECT_TRUE(output.awaitLine("Begin Operation for client"));
  sending.client->endOperation();
  EXPECT_TRUE(output.awaitLine("End Operation for client"));
}

#if defined(__GLIBC__)
TEST(SetUp, SurvivesAThreadThatCannotBeStarted) {
  Serving serving;
  const Sending sending;
  pthread_attr_t usual, huge;
  pthread_getattr_default_np(&usual);
  pthread_getattr_default_np(&huge);
  pthread_attr_setstacksize(&huge, std::size_t{1} << 50);
  pthread_setattr_default_np(&huge);
  EXPECT_THROW(serving.server->beginOperation(), std::system_error);
  EXPECT_THROW(sending.client->beginOperation(), std::system_error);
  pthread_setattr_default_np(&usual);
  serving.server->beginOperation();
  sending.client->beginOperation();
  serving.peer.say("heard");
  EXPECT_EQ(serving.await(), bytes("heard"));
}
#endif

// --- Receiving ---

TEST(Server, QueuesDatagramsInOrderOfArrival) {
  Serving serving;
  serving.server->beginOperation();
  for (const char* text : {"one", "", "three"}) serving.peer.say(text);
  EXPECT_EQ(serving.await(), bytes("one"));
  EXPECT_EQ(serving.await(), Data());
  EXPECT_EQ(serving.await(), bytes("three"));
  EXPECT_EQ(serving.server->recieve(), std::nullopt);
}

TEST(Server, DropsItsQueueWhenAsked) {
  Serving serving;
  Mailbox<bool> queued;
  serving.responder->answer = [&] {
    queued.put(true);
    return std::nullopt;
  };
  serving.server->beginOperation();
  for (const char* text : {"one", "two"}) serving.peer.say(text);
  EXPECT_TRUE(queued.await() && queued.await());
  serving.server->clearRxQueue();
  EXPECT_EQ(serving.server->recieve(), std::nullopt);
}

TEST(Server, CutsDatagramsToTheLimit) {
  Serving serving(1024);
  serving.server->beginOperation();
  const auto receivedSize = [&](std::int64_t limit) {
    serving.server->setBufferLimit(limit);
    // The pass under way may still have the old limit.
    for (int i = 0; i < 2; ++i) serving.peer.sendBytes(Data(2000));
    std::ignore = serving.await();
    return serving.await().size();
  };
  EXPECT_EQ(receivedSize(1024), 1024);
  EXPECT_EQ(receivedSize(largest), 1024);  // the buffer is as large as it began
  EXPECT_EQ(receivedSize(7), 7);
  EXPECT_EQ(receivedSize(std::numeric_limits<std::int64_t>::min()), 0);
}

TEST(Server, TakesTheLargestDatagramAtAnyLargeLimit) {
  Serving serving;
  serving.server->setBufferLimit(largest);
  serving.server->beginOperation();
  serving.peer.sendBytes(pattern(65507));
  EXPECT_EQ(serving.await(), pattern(65507));
}

TEST(Server, RepliesToWhoeverSpokeLast) {
  Output output;
  Serving serving(16);
  serving.responder->answer = [server = serving.server]() -> std::optional<Data> {
    auto datagram = server->recieve();
    if (datagram == bytes("silence")) return std::nullopt;
    if (datagram == bytes("nothing")) return Data();
    if (datagram == bytes("more")) return pattern(5000);  // beyond its own limit
    return datagram;
  };
  Peer second(serving.endpoint.second);
  serving.server->beginOperation();
  EXPECT_TRUE(output.awaitLine("Receive process running for server"));
  serving.peer.say("ten bytes.");
  EXPECT_EQ(serving.peer.hearText(), "ten bytes.");
  EXPECT_TRUE(output.awaitLine("server sent response of length 10"));
  serving.server->setName("renamed");
  for (const char* text : {"silence", "nothing", "more"}) second.say(text);
  EXPECT_EQ(second.hear(), Data());
  EXPECT_EQ(second.hear(), pattern(5000));
  EXPECT_TRUE(output.awaitLine("renamed sent response of length 5000"));
  EXPECT_TRUE(serving.peer.hearsNothing());
  EXPECT_EQ(output.lines().size(), 4);
}

// --- Sending ---

TEST(Client, SendsOneDatagramAMessage) {
  Sending sending;
  sending.client->send("before the start");
  sending.client->beginOperation();
  sending.client->send(Data());
  sending.client->send(pattern(65500));
  EXPECT_EQ(sending.peer.hearText(), "before the start");
  EXPECT_EQ(sending.peer.hear(), Data());
  EXPECT_EQ(sending.peer.hear(), pattern(65500));
}

TEST(Client, HoldsBackTheRestOfALongMessage) {
  Sending sending(1000);
  sending.client->beginOperation();
  const Data message = pattern(2500);
  sending.client->send(message);
  EXPECT_EQ(sending.peer.hear(), Data(message.begin(), message.begin() + 1000));
  EXPECT_TRUE(sending.peer.hearsNothing());
  sending.client->send("next");
  EXPECT_EQ(sending.peer.hear(), Data(message.begin() + 1000, message.begin() + 2000));
  EXPECT_EQ(sending.peer.hear(), Data(message.begin() + 2000, message.end()));
  EXPECT_EQ(sending.peer.hearText(), "next");
}

TEST(Client, EmptiesAFullQueueForTheNewestMessage) {
  for (const int count : {100, 101}) {
    Sending sending;
    for (int i = 1; i <= count; ++i) sending.client->send(std::to_string(i));
    sending.client->send("not \xFF text");  // no message at all: the queue stays as it is
    sending.client->beginOperation();
    for (int i = count == 101 ? 101 : 1; i <= count; ++i) {
      EXPECT_EQ(sending.peer.hearText(), std::to_string(i));
    }
    EXPECT_TRUE(sending.peer.hearsNothing());
  }
}

TEST(Client, DropsWhatWaitsWhenResetOrEnded) {
  Sending sending;
  sending.client->send("reset");
  sending.client->resetMessageQueue();
  sending.client->send("discarded");
  sending.client->endOperation();
  sending.client->send("sent");
  sending.client->beginOperation();
  EXPECT_EQ(sending.peer.hearText(), "sent");
}

TEST(Client, RetriesWhatCannotBeSent) {
  Sending sending;
  sending.client->setBufferLimit(largest);
  sending.client->beginOperation();
  sending.client->send(pattern(100000));
  sending.client->send("behind");
  EXPECT_TRUE(sending.peer.hearsNothing());
  sending.client->setBufferLimit(60000);  // lowering takes effect at once
  EXPECT_EQ(sending.hearSize(), 60000);
  EXPECT_EQ(sending.hearSize(), 40000);
  EXPECT_EQ(sending.peer.hearText(), "behind");
}

TEST(Client, GivesAReplyToDelegateAndWaitingCaller) {
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
    sending.peer.sendBytes({});  // while the call still lasts
    EXPECT_EQ(sending.listener->responses.await(), Data());
  });
  answering.join();
  EXPECT_EQ(answer, bytes("first"));
  sending.client->send("again", keep);  // answered at once, by the reply that nobody took
  EXPECT_EQ(answer, Data());
  sending.client->send("and again", keep);
  EXPECT_EQ(answer, std::nullopt);
}

TEST(Client, WaitsInVainOnItsOwnThread) {
  Sending sending;
  Mailbox<std::optional<Data>> answers;
  sending.listener->listen = [&](const Data&) {
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

// --- Life cycle ---

TEST(LifeCycle, EndsBeforeTheStartAndFromInsideACall) {
  Serving serving;
  serving.server->endOperation();
  serving.responder->answer = [server = serving.server]() -> std::optional<Data> {
    server->endOperation();
    return bytes("goodbye");
  };
  serving.server->beginOperation();
  serving.peer.say("hello");
  EXPECT_EQ(serving.peer.hearText(), "goodbye");
  EXPECT_TRUE(eventually([&] { return isPortFree(serving.endpoint.second); }));
}

TEST(LifeCycle, RestartsWithoutASocket) {
  Output output;
  const Serving serving;
  const Sending sending;
  for (int run = 0; run < 2; ++run) {
    serving.server->endOperation();
    sending.client->endOperation();
    serving.server->beginOperation();
    EXPECT_TRUE(output.awaitLine("Receive process running for server"));
    sending.client->beginOperation();
    EXPECT_TRUE(output.awaitLine("Send process running for client"));
  }
  EXPECT_TRUE(eventually([&] { return isPortFree(serving.endpoint.second); }));
  sending.client->send("to nobody");
  // Whatever descriptors are given out now, the endpoints that run again leave them alone.
  Peer first, second;
  for (int i = 0; i < 200; ++i) {
    Peer(first.port()).say("first");
    Peer(second.port()).say("second");
    EXPECT_EQ(first.hearText(), "first");
    EXPECT_EQ(second.hearText(), "second");
  }
  EXPECT_EQ(serving.server->recieve(), std::nullopt);
}

TEST(LifeCycle, FreesAnEndpointOnceItsThreadHasEnded) {
  std::weak_ptr<UDPServer> server;
  std::weak_ptr<UDPClient> client;
  {
    const Serving serving;
    const Sending sending;
    serving.server->beginOperation();
    sending.client->beginOperation();
    server = serving.endpoint.first;
    client = sending.client;
  }
  EXPECT_TRUE(eventually([&] { return server.expired() && client.expired(); }));
}

TEST(LifeCycle, LeavesNothingToTheEndOfTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const Serving serving;
        const Sending sending;
        serving.server->beginOperation();
        sending.client->beginOperation();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tarnwick::test
