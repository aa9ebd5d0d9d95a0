#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <limits>
#include <thread>

#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Output.hpp"
#include "Tests/Peer.hpp"

#if defined(TARNWICK_TEST_FAULTS)
// The linker leads these calls of the library here, so that a test can let them fail.
std::atomic<bool> failFcntl = false, failMutex = false;
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names.
extern "C" {
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

auto newServer(std::int64_t bufferSize = 65500,
               const std::shared_ptr<Responder>& delegate = nullptr) {
  return onFreePort(
      [&](std::uint16_t port) { return UDPServer::create("server", port, bufferSize, delegate); });
}

auto newClient(const Peer& peer, std::int64_t bufferSize = 65500,
               const std::shared_ptr<Listener>& delegate = nullptr) {
  return UDPClient::create("client", "127.0.0.1", peer.port(), bufferSize, delegate);
}

template <typename Action>
std::optional<UDPError> errorOf(Action action) {
  try {
    action();
  } catch (const UDPError& error) {
    return error;
  }
  return std::nullopt;
}

Data awaitDatagram(UDPServer& server) {
  std::optional<Data> datagram;
  EXPECT_TRUE(eventually([&] { return (datagram = server.recieve()).has_value(); }));
  return datagram.value_or(Data());
}

Data pattern(std::size_t size) {
  Data data(size);
  for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
  return data;
}

// --- Set-up ---

TEST(SetUp, RefusesAddressesThatAreNone) {
  for (const char* address : {"300.1.1.1", "localhost", "", "127.0.0.1x", "::1"}) {
    EXPECT_EQ(errorOf([&] { std::ignore = UDPClient::create("client", address, 1); }),
              UDPError::badAddress)
        << address;
  }
  for (const char* address : {"127.0.0.1", "10.1", "2130706433"}) {
    EXPECT_NE(UDPClient::create("client", address, 1), nullptr) << address;
  }
}

TEST(SetUp, RefusesAPortThatIsTaken) {
  const Peer holder;
  EXPECT_EQ(errorOf([&] { std::ignore = UDPServer::create("server", holder.port()); }),
            UDPError::bindSocket);
}

TEST(SetUp, ReportsWhatTheSystemRefuses) {
  const auto both = [](const UDPError& expected) {
    EXPECT_EQ(errorOf([] { std::ignore = UDPServer::create("server", 0); }), expected);
    EXPECT_EQ(errorOf([] { std::ignore = UDPClient::create("client", "127.0.0.1", 1); }), expected);
  };
  rlimit files{}, none{};
  getrlimit(RLIMIT_NOFILE, &files);
  none.rlim_max = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &none);
  both(UDPError::noSocket);
  setrlimit(RLIMIT_NOFILE, &files);
#if defined(TARNWICK_TEST_FAULTS)
  failFcntl = true;
  both(UDPError::setupForNonBlocking);
  failFcntl = false;
  failMutex = true;
  both(UDPError::threadLock);
  failMutex = false;
#endif
}

TEST(SetUp, CapsTheBufferSizeAndNothingElse) {
  const Peer peer;
  for (const auto& [asked, given] :
       {std::pair<std::int64_t, std::int64_t>{100000, 65500}, {1024, 1024}, {-5, -5}}) {
    EXPECT_EQ(newServer(asked).first->bufferLimit(), given);
    const auto client = newClient(peer, asked);
    EXPECT_EQ(client->bufferLimit(), given);
    client->setBufferLimit(1 << 20);
    EXPECT_EQ(client->bufferLimit(), 1 << 20);
  }
}

TEST(SetUp, RefusesASecondStart) {
  const Peer peer;
  const auto [server, port] = newServer();
  const auto client = newClient(peer);
  Output output;
  server->beginOperation();
  EXPECT_EQ(errorOf([&, &server = server] { server->beginOperation(); }),
            UDPError::alreadyInProgress);
  client->beginOperation();
  EXPECT_TRUE(output.awaitLine("Begin Operation for client"));
  EXPECT_EQ(errorOf([&] { client->beginOperation(); }), UDPError::alreadyInProgress);
  EXPECT_TRUE(output.awaitLine("Begin Operation for client"));
  server->endOperation();
  client->endOperation();
  EXPECT_TRUE(output.awaitLine("End Operation for client"));
}

#if defined(__GLIBC__)
TEST(SetUp, SurvivesAThreadThatCannotBeStarted) {
  const Peer peer;
  auto [server, port] = newServer();
  const auto client = newClient(peer);
  pthread_attr_t usual, huge;
  pthread_getattr_default_np(&usual);
  pthread_getattr_default_np(&huge);
  pthread_attr_setstacksize(&huge, std::size_t{1} << 50);
  pthread_setattr_default_np(&huge);
  EXPECT_THROW(server->beginOperation(), std::system_error);
  EXPECT_THROW(client->beginOperation(), std::system_error);
  pthread_setattr_default_np(&usual);
  server->beginOperation();
  client->beginOperation();
  Peer(port).say("heard");
  EXPECT_EQ(awaitDatagram(*server), bytes("heard"));
  server->endOperation();
  client->endOperation();
}
#endif

// --- Receiving ---

TEST(Server, QueuesDatagramsInOrderOfArrival) {
  const auto [server, port] = newServer();
  Peer peer(port);
  server->beginOperation();
  for (const char* text : {"one", "", "three"}) peer.say(text);
  EXPECT_EQ(awaitDatagram(*server), bytes("one"));
  EXPECT_EQ(awaitDatagram(*server), Data());
  EXPECT_EQ(awaitDatagram(*server), bytes("three"));
  EXPECT_EQ(server->recieve(), std::nullopt);
  peer.say("dropped");
  peer.say("kept");
  while (awaitDatagram(*server) != bytes("dropped")) continue;
  server->clearRxQueue();
  server->endOperation();
}

TEST(Server, CutsDatagramsToTheLimit) {
  const auto [server, port] = newServer(1024);
  Peer peer(port);
  server->beginOperation();
  const auto receivedSize = [&, &server = server](std::int64_t limit) {
    server->setBufferLimit(limit);
    // The pass under way may still have the old limit.
    std::size_t previous = 1, size = 0;
    for (; size != previous; size = awaitDatagram(*server).size()) {
      previous = size;
      peer.sendBytes(Data(2000));
    }
    return size;
  };
  EXPECT_EQ(receivedSize(1024), 1024);
  EXPECT_EQ(receivedSize(1 << 20), 1024);  // the buffer is as large as it began
  EXPECT_EQ(receivedSize(7), 7);
  EXPECT_EQ(receivedSize(std::numeric_limits<std::int64_t>::min()), 0);
  server->endOperation();
}

TEST(Server, TakesTheLargestDatagramAtAnyLargeLimit) {
  const auto [server, port] = newServer();
  server->setBufferLimit(std::numeric_limits<std::int64_t>::max());
  server->beginOperation();
  const Data largest = pattern(65507);
  Peer(port).sendBytes(largest);
  EXPECT_EQ(awaitDatagram(*server), largest);
  server->endOperation();
}

TEST(Server, RepliesToWhoeverSpokeLast) {
  const auto responder = std::make_shared<Responder>();
  const auto [server, port] = newServer(65500, responder);
  std::weak_ptr<UDPServer> endpoint = server;
  responder->answer = [endpoint]() -> std::optional<Data> {
    auto datagram = endpoint.lock()->recieve();
    if (datagram == bytes("silence")) return std::nullopt;
    if (datagram == bytes("nothing")) return Data();
    return datagram;
  };
  Output output;
  Peer first(port), second(port);
  server->beginOperation();
  EXPECT_TRUE(output.awaitLine("Receive process running for server"));
  first.say("nine bytes");
  EXPECT_EQ(first.hearText(), "nine bytes");
  EXPECT_TRUE(output.awaitLine("server sent response of length 10"));
  server->setName("renamed");
  second.say("silence");
  second.say("nothing");
  EXPECT_EQ(second.hearText(), "");
  EXPECT_TRUE(output.awaitLine("renamed sent response of length 0"));
  EXPECT_TRUE(first.hearsNothing());
  EXPECT_EQ(output.lines().size(), 3);
  server->endOperation();
}

TEST(Server, SendsAReplyLongerThanItsLimit) {
  const auto responder = std::make_shared<Responder>();
  responder->answer = [] { return pattern(5000); };
  const auto [server, port] = newServer(16, responder);
  Peer peer(port);
  server->beginOperation();
  peer.say("more");
  EXPECT_EQ(peer.hear(), pattern(5000));
  server->endOperation();
}

// --- Sending ---

TEST(Client, SendsOneDatagramAMessage) {
  Peer peer;
  const auto client = newClient(peer);
  client->send("before the start");
  client->beginOperation();
  client->send(Data());
  client->send(pattern(65500));
  EXPECT_EQ(peer.hearText(), "before the start");
  EXPECT_EQ(peer.hear(), Data());
  EXPECT_EQ(peer.hear(), pattern(65500));
  client->endOperation();
}

TEST(Client, HoldsBackTheRestOfALongMessage) {
  Peer peer;
  const auto client = newClient(peer, 1000);
  client->beginOperation();
  const Data message = pattern(2500);
  client->send(message);
  Data received = peer.hear().value_or(Data());
  EXPECT_EQ(received.size(), 1000);
  EXPECT_TRUE(peer.hearsNothing());
  client->send("next");
  for (const std::size_t size : {1000, 500}) {
    const Data piece = peer.hear().value_or(Data());
    EXPECT_EQ(piece.size(), size);
    received.insert(received.end(), piece.begin(), piece.end());
  }
  EXPECT_EQ(received, message);
  EXPECT_EQ(peer.hearText(), "next");
  client->endOperation();
}

TEST(Client, EmptiesAFullQueueForTheNewestMessage) {
  Peer peer;
  const auto client = newClient(peer);
  for (int i = 0; i < 100; ++i) client->send(std::to_string(i));
  client->send("not \xFF text");  // no message at all: the queue stays as it is
  client->beginOperation();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(peer.hearText(), std::to_string(i));
  client->endOperation();

  const auto full = newClient(peer);
  for (int i = 0; i <= 100; ++i) full->send(std::to_string(i));
  full->beginOperation();
  EXPECT_EQ(peer.hearText(), "100");
  EXPECT_TRUE(peer.hearsNothing());
  full->endOperation();
}

TEST(Client, DropsWhatWaitsWhenResetOrEnded) {
  Peer peer;
  const auto client = newClient(peer);
  client->send("reset");
  client->resetMessageQueue();
  client->send("kept");
  client->beginOperation();
  EXPECT_EQ(peer.hearText(), "kept");
  client->endOperation();
  client->send("after the end");

  const auto ended = newClient(peer);
  ended->send("discarded");
  ended->endOperation();
  ended->beginOperation();
  ended->send("sent");
  EXPECT_EQ(peer.hearText(), "sent");
  ended->endOperation();
}

TEST(Client, RetriesWhatCannotBeSent) {
  Peer peer;
  const auto client = newClient(peer);
  client->setBufferLimit(std::numeric_limits<std::int64_t>::max());
  client->beginOperation();
  client->send(pattern(100000));
  client->send("behind");
  EXPECT_TRUE(peer.hearsNothing());
  client->setBufferLimit(60000);  // lowering takes effect at once
  EXPECT_EQ(peer.hear().value_or(Data()).size(), 60000);
  EXPECT_EQ(peer.hear().value_or(Data()).size(), 40000);
  EXPECT_EQ(peer.hearText(), "behind");
  client->endOperation();
}

TEST(Client, GivesAReplyToDelegateAndWaitingCaller) {
  Peer peer;
  const auto listener = std::make_shared<Listener>();
  const auto client = newClient(peer, 65500, listener);
  client->beginOperation();
  std::thread answering([&] {
    EXPECT_EQ(peer.hearText(), "question");
    peer.say("ok");
  });
  std::optional<Data> answer;
  client->send("question", [&](std::optional<Data> data) { answer = std::move(data); });
  answering.join();
  EXPECT_EQ(answer, bytes("ok"));
  EXPECT_EQ(listener->responses.await(), bytes("ok"));
  peer.sendBytes({});
  EXPECT_EQ(listener->responses.await(), Data());
  client->endOperation();
}

TEST(Client, KeepsASecondReplyForTheNextCaller) {
  Peer peer;
  const auto listener = std::make_shared<Listener>();
  const auto client = newClient(peer, 65500, listener);
  client->beginOperation();
  std::thread answering([&] {
    peer.hear();
    peer.say("first");
  });
  std::optional<Data> answer;
  client->send("?", [&](const std::optional<Data>&) {
    listener->responses.await();
    peer.say("second");  // while the call still lasts
    listener->responses.await();
  });
  answering.join();
  client->send("??", [&](std::optional<Data> data) { answer = std::move(data); });
  EXPECT_EQ(answer, bytes("second"));
  // Nothing is left for a third caller, who waits in vain.
  client->send("???", [&](std::optional<Data> data) { answer = std::move(data); });
  EXPECT_EQ(answer, std::nullopt);
  client->endOperation();
}

TEST(Client, WaitsInVainOnItsOwnThread) {
  Peer peer;
  const auto listener = std::make_shared<Listener>();
  const auto client = newClient(peer, 65500, listener);
  Mailbox<std::optional<Data>> answers;
  listener->listen = [&, endpoint = std::weak_ptr(client)](const Data&) {
    endpoint.lock()->send("?", [&](std::optional<Data> data) { answers.put(std::move(data)); });
  };
  client->beginOperation();
  client->send("hello");
  peer.hear();
  peer.say("hello");
  EXPECT_EQ(answers.await(), std::optional<std::optional<Data>>(std::optional<Data>()));
  client->endOperation();
}

TEST(Client, FollowsWhoeverReplies) {
  Peer peer;
  const auto listener = std::make_shared<Listener>();
  const auto client = newClient(peer, 65500, listener);
  client->beginOperation();
  client->send("hello");
  peer.hear();
  Peer stranger(peer.target());
  stranger.say("redirect");
  EXPECT_EQ(listener->responses.await(), bytes("redirect"));
  client->send("follow");
  EXPECT_EQ(stranger.hearText(), "follow");
  client->endOperation();
}

// --- Life cycle ---

TEST(LifeCycle, EndsBeforeTheStartAndFromInsideACall) {
  const auto responder = std::make_shared<Responder>();
  const auto [server, port] = newServer(65500, responder);
  server->endOperation();
  std::atomic<int> calls = 0;
  responder->answer = [&, endpoint = std::weak_ptr(server)]() -> std::optional<Data> {
    ++calls;
    endpoint.lock()->endOperation();
    return bytes("goodbye");
  };
  Peer peer(port);
  server->beginOperation();
  peer.say("hello");
  EXPECT_EQ(peer.hearText(), "goodbye");
  EXPECT_TRUE(eventually([port = port] { return isPortFree(port); }));
  EXPECT_EQ(calls, 1);
}

TEST(LifeCycle, RestartsWithoutASocket) {
  const Peer place;
  const auto [server, port] = newServer();
  const auto client = newClient(place);
  Output output;
  const std::string serverLine = "Receive process running for server";
  const std::string clientLine = "Send process running for client";
  for (int run = 0; run < 2; ++run) {
    server->beginOperation();
    EXPECT_TRUE(output.awaitLine(serverLine));
    client->beginOperation();
    EXPECT_TRUE(output.awaitLine(clientLine));
    server->endOperation();
    client->endOperation();
    EXPECT_TRUE(eventually([port = port] { return isPortFree(port); }));
  }
  server->beginOperation();
  client->beginOperation();
  client->send("to nobody");
  // Whatever descriptors are given out now, the endpoints that run again leave them alone.
  Peer first, second;
  for (int i = 0; i < 200; ++i) {
    Peer(first.port()).say("first");
    Peer(second.port()).say("second");
    EXPECT_EQ(first.hearText(), "first");
    EXPECT_EQ(second.hearText(), "second");
  }
  EXPECT_EQ(server->recieve(), std::nullopt);
  server->endOperation();
  client->endOperation();
}

TEST(LifeCycle, LetsTwoThreadsNeverServeOneEndpoint) {
  const auto responder = std::make_shared<Responder>();
  std::atomic<int> inside = 0, calls = 0;
  responder->answer = [&]() -> std::optional<Data> {
    EXPECT_EQ(++inside, 1);
    ++calls;
    std::this_thread::yield();
    --inside;
    return std::nullopt;
  };
  const auto [server, port] = newServer(65500, responder);
  Peer peer(port);
  for (int run = 0; run < 5; ++run) {
    server->beginOperation();
    peer.say("hello");
    EXPECT_TRUE(run > 0 || eventually([&] { return calls == 1; }));
    server->endOperation();
  }
  EXPECT_TRUE(eventually([port = port] { return isPortFree(port); }));
}

TEST(LifeCycle, FreesAnEndpointOnceItsThreadHasEnded) {
  const Peer peer;
  std::weak_ptr<UDPServer> server;
  std::weak_ptr<UDPClient> client;
  {
    const auto serving = newServer().first;
    const auto sending = newClient(peer);
    serving->beginOperation();
    sending->beginOperation();
    server = serving;
    client = sending;
    serving->endOperation();
    sending->endOperation();
  }
  EXPECT_TRUE(eventually([&] { return server.expired() && client.expired(); }));
}

TEST(LifeCycle, LeavesNothingToTheEndOfTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const Peer peer;
        newServer().first->beginOperation();
        newClient(peer)->beginOperation();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tarnwick::test
