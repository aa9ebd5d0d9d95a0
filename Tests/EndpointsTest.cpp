#include <sys/prctl.h>
#include <sys/resource.h>

#include <atomic>

#include "Tarnwick/Platform/NSThread.hpp"
#include "Tests/Endpoints.hpp"

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

// --- Threads ---

TEST(Threads, StepFromTheNiceValueOfTheProcess) {
  const auto settings = [] {
    return std::pair(getpriority(PRIO_PROCESS, 0), prctl(PR_GET_TIMERSLACK));
  };
  const int nice = settings().first + 3;
  Mailbox<std::pair<int, int>> seen;
  std::thread([&] {  // has the nice value that the process began with
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

}  // namespace
}  // namespace tarnwick::test
