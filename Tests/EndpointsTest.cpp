#include <sys/prctl.h>
#include <sys/resource.h>

#include "Tarnwick/Platform/NSThread.hpp"
#include "Tests/Endpoints.hpp"
#include "Tests/Process.hpp"
#include "Tests/Shortage.hpp"

#if defined(TARNWICK_TEST_FAULTS)
// The linker redirects these calls of the library here, so that tests can make them fail.
std::atomic<bool> failSocket = false, failFcntl = false;
std::atomic<int> mutexesBeforeFailure = -1;
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
  return mutexesBeforeFailure-- == 0 ? ENOMEM : __real_pthread_mutex_init(mutex, attributes);
}
}
// NOLINTEND(bugprone-reserved-identifier)
#endif

namespace tarnwick::test {

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
  for (const auto& [fault, error] :
       {std::pair{&failSocket, UDPError::noSocket}, {&failFcntl, UDPError::setupForNonBlocking}}) {
    *fault = true;
    EXPECT_EQ(errorOf([] { std::ignore = UDPServer::create("server", 0); }), error);
    EXPECT_EQ(errorOf([] { std::ignore = UDPClient::create("client", "127.0.0.1", 1); }), error);
    *fault = false;
  }
  for (const int before : {0, 1}) {  // a client has two mutexes, a server has one
    mutexesBeforeFailure = before;
    EXPECT_EQ(errorOf([] { std::ignore = UDPClient::create("client", "127.0.0.1", 1); }),
              UDPError::threadLock);
  }
  mutexesBeforeFailure = 0;
  EXPECT_EQ(errorOf([] { std::ignore = UDPServer::create("server", 0); }), UDPError::threadLock);
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

TEST(Threads, StepFromTheNiceValueOfTheProcess) {
  const auto settings = [] {
    return std::pair(getpriority(PRIO_PROCESS, 0), prctl(PR_GET_TIMERSLACK));
  };
  const int nice = settings().first + 3;
  Mailbox<std::pair<int, int>> seen;
  std::thread([&] {  // has the nice value from before
    setpriority(PRIO_PROCESS, static_cast<id_t>(getpid()), nice);
    NSThread::setThreadPriority(0.6);
    NSThread::detachNewThread([&] {
      seen.put(settings());
      for (const double priority : {0.49, 0.45, 0.0}) {
        NSThread::setThreadPriority(priority);
        seen.put(settings());
      }
    });
  })
      .join();
  for (const int expected : {nice, nice + 1, nice + 5, 19}) {
    EXPECT_EQ(seen.await(), std::pair(expected, 50'000));
  }
}

TEST(Threads, AreWokenByASemaphore) {
  const auto start = std::chrono::steady_clock::now();
  DispatchSemaphore ping, pong;
  std::thread other([&] {
    for (int i = 0; i < 100 && ping.wait(deadline); ++i) pong.signal();
  });
  for (int i = 0; i < 100; ++i) {
    ping.signal();
    EXPECT_TRUE(pong.wait(deadline));
  }
  other.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, deadline);
}

TEST(LifeCycle, EndsBeforeTheStartAndFromInsideACall) {
  auto responder = std::make_shared<Responder>();
  auto [server, port] =
      onFreePort([&](auto free) { return UDPServer::create("server", free, responder); });
  server->endOperation();
  responder->answer = [server = server.get()]() -> std::optional<Data> {
    server->endOperation();
    return bytes("goodbye");
  };
  server->beginOperation();
  server.reset(), responder.reset();  // the receive thread keeps both alive
  Peer peer(port);
  peer.say("hello");
  EXPECT_EQ(peer.hearText(), "goodbye");
  EXPECT_TRUE(eventually([&, free = port] { return isPortFree(free); }));
}

TEST(LifeCycle, RestartsWithoutASocket) {
  Output output;
  const Serving serving;
  Sending sending;
  const std::int64_t before = holdings().descriptors - 2;
  for (int run = 0; run < 2; ++run) {
    serving.server->endOperation();
    sending.client->endOperation();
    serving.server->beginOperation();
    EXPECT_TRUE(output.awaitLine("Receive process running for server"));
    sending.client->beginOperation();
    EXPECT_TRUE(output.awaitLine("Send process running for client"));
  }
  EXPECT_TRUE(eventually([&] { return holdings().descriptors == before; }));
  // The restarted endpoints must not use descriptors that the system reuses now.
  Peer first, second;
  for (int i = 0; i < 200; ++i) {
    sending.client->send("to nobody");
    Peer(first.port()).say("first");
    Peer(second.port()).say("second");
    EXPECT_EQ(first.hearText(), "first");
    EXPECT_EQ(second.hearText(), "second");
  }
  EXPECT_EQ(serving.server->recieve(), std::nullopt);
  EXPECT_TRUE(sending.peer.hearsNothing());
}

TEST(LifeCycle, FreesAnEndpointOnceItsThreadHasEnded) {
  Output output;
  std::weak_ptr<UDPServer> server;
  std::weak_ptr<UDPClient> client;
  const std::int64_t before = holdings().descriptors;
  {
    const Serving serving;
    const Sending sending;
    serving.server->beginOperation();
    sending.client->beginOperation();
    const auto startBoth = [&] {
      EXPECT_EQ(errorOf([&] { serving.server->beginOperation(); }), UDPError::alreadyInProgress);
      sending.client->beginOperation();
    };
    EXPECT_EQ(errorOf(startBoth), UDPError::alreadyInProgress);
    server = serving.endpoint.first;
    client = sending.client;
  }
  EXPECT_TRUE(eventually([&] { return server.expired() && client.expired(); }));
  EXPECT_EQ(holdings().descriptors, before);
  logLine("All ended");
  EXPECT_TRUE(output.awaitLine("All ended"));
  EXPECT_EQ(output.lines().size(), 6);  // "Begin" twice; "Receive", "Send" and "End" once
  {
    const Serving unused;
    const Sending idle;
  }  // their sockets stay open
  EXPECT_EQ(holdings().descriptors, before + 2);
}

TEST(LifeCycle, EndsThoughNobodyReadsItsLog) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto flood = [] {
    const Output output(true);
    Serving serving, running;
    const Sending sending;
    serving.server->setName(std::string(4000, 'n'));
    serving.responder->answer = [] { return Data(); };
    for (UDPServer* server : {serving.server, running.server}) server->beginOperation();
    sending.client->beginOperation();
    for (int i = 0; i < 400; ++i) {
      serving.peer.say("?");
      if (!serving.peer.hear()) std::exit(1);
    }
    serving.server->endOperation();
    std::exit(eventually([&] { return isPortFree(serving.endpoint.second); }) ? 0 : 2);
  };
  EXPECT_EXIT(flood(), testing::ExitedWithCode(0), "");
}

TEST(LifeCycle, OutlastsALackOfThreadsAndMemory) {
  Serving serving;
  Sending sending;
  const auto expectNoStart = [&] {
    EXPECT_THROW(serving.server->beginOperation(), std::exception);
    EXPECT_THROW(sending.client->beginOperation(), std::exception);
  };
  {
    const ThreadShortage shortage;
    expectNoStart();
  }
  const Data large(40'000);
  serving.server->setName(std::string(70'000, 's'));
  sending.client->setName(std::string(70'000, 'c'));
  std::string line(14'999, '.');
  refusedSize = 15'000;
  logLine(std::move(line));
  expectNoStart();
  refusedSize = 66'000;  // only copies of the names fail
  serving.server->beginOperation();
  sending.client->beginOperation();
  sending.client->send("hello");
  sending.peer.hear();
  serving.peer.say("hello");
  EXPECT_EQ(serving.await(), bytes("hello"));
  refusedSize = 15'000;
  for (Peer* peer : {&serving.peer, &sending.peer}) peer->sendBytes(large), peer->say("small");
  EXPECT_EQ(serving.await(), bytes("small"));
  EXPECT_EQ(sending.listener->responses.await(), bytes("small"));
  sending.client->endOperation();
  refusedSize = SIZE_MAX;
}

}  // namespace tarnwick::test
