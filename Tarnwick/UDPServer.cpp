#include "Tarnwick/UDPServer.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "Tarnwick/Platform/DataStore.hpp"
#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Platform/Memory.hpp"
#include "Tarnwick/Platform/NSThread.hpp"
#include "Tarnwick/UDPError.hpp"

namespace tarnwick {
namespace {

constexpr int noDescriptor = -1;
constexpr double threadPriority = 0.6;

/// Exceeds every UDP payload over IPv4 (RFC 768, RFC 791): a larger buffer would never fill.
constexpr std::size_t largestBuffer = 65535;

sockaddr_in anyAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return address;
}

int openSocket(const sockaddr_in& address) {
  const int descriptor = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (descriptor == -1) throw UDPError(UDPError::noSocket);
  if (fcntl(descriptor, F_SETFL, O_NONBLOCK) == -1) throw UDPError(UDPError::setupForNonBlocking);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
    throw UDPError(UDPError::bindSocket);
  }
  return descriptor;
}

}  // namespace

UDPServer::UDPServer(Private, std::string name, std::uint16_t port,
                     std::shared_ptr<UDPServerDelegate> delegate)
    : theSocket_(openSocket(anyAddress(port))),
      serverAddress_(anyAddress(port)),
      delegate_(std::move(delegate)),
      name_(std::move(name)) {
  if (!threadLock_.isUsable()) throw UDPError(UDPError::threadLock);
}

std::shared_ptr<UDPServer> UDPServer::create(std::string name, std::uint16_t port) {
  return create(std::move(name), port, nullptr);
}

std::shared_ptr<UDPServer> UDPServer::create(std::string name, std::uint16_t port,
                                             std::shared_ptr<UDPServerDelegate> delegate) {
  return std::make_shared<UDPServer>(Private{}, std::move(name), port, std::move(delegate));
}

std::shared_ptr<UDPServer> UDPServer::create(std::string name, std::uint16_t port,
                                             std::int64_t bufferSize,
                                             std::shared_ptr<UDPServerDelegate> delegate) {
  auto server = create(std::move(name), port, std::move(delegate));
  server->setBufferLimit(std::min(server->bufferLimit(), bufferSize));
  return server;
}

void UDPServer::beginOperation() {
  const std::optional<RunFlag::Run> run = okToRun_.begin();
  if (!run) throw UDPError(UDPError::alreadyInProgress);
  const int socket = theSocket_.exchange(noDescriptor);
  try {
    Data buffer(limit(largestBuffer));
    NSThread::detachNewThread(
        [server = shared_from_this(), socket, run = *run, buffer = std::move(buffer)]() mutable {
          server->receiveProcess(socket, run, buffer);
        });
  } catch (...) {
    theSocket_ = socket;
    okToRun_.end(*run);
    throw;
  }
}

void UDPServer::endOperation() { okToRun_.end(); }

std::optional<Data> UDPServer::recieve() {
  const MutexLock lock(threadLock_);
  if (receiveQueue_.empty()) return std::nullopt;
  Data datagram = std::move(receiveQueue_.front());
  receiveQueue_.pop_front();
  return datagram;
}

void UDPServer::clearRxQueue() {
  std::deque<Data> dropped;
  const MutexLock lock(threadLock_);
  receiveQueue_.swap(dropped);
}

std::string UDPServer::name() const {
  const MutexLock lock(threadLock_);
  return name_;
}

void UDPServer::setName(std::string name) {
  const MutexLock lock(threadLock_);
  name_ = std::move(name);
}

void UDPServer::receiveProcess(int socket, RunFlag::Run run, Data& buffer) {
  NSThread::setThreadPriority(threadPriority);
  ifMemoryAllows([&] { logLine("Receive process running for " + name()); });
  // No pause: the thread occupies a processor so that datagrams leave the system's small receive
  // buffer at once.
  while (okToRun_.isRunning(run)) ifMemoryAllows([&] { receiveDatagram(socket, buffer); });
  if (socket != noDescriptor) close(socket);
}

void UDPServer::receiveDatagram(int socket, Data& buffer) {
  socklen_t addressLength = sizeof serverAddress_;
  const ssize_t received = recvfrom(socket, buffer.data(), limit(buffer.size()), 0,
                                    reinterpret_cast<sockaddr*>(&serverAddress_), &addressLength);
  if (received == -1) return;
  Data datagram = DataStore::shared().copy({buffer.data(), static_cast<std::size_t>(received)});
  {
    const MutexLock lock(threadLock_);
    receiveQueue_.push_back(std::move(datagram));
  }
  if (!delegate_) return;
  if (const auto response = delegate_->processMessageForResponse()) {
    reply(socket, *response, addressLength);
  }
}

void UDPServer::reply(int socket, const Data& response, socklen_t addressLength) {
  const ssize_t sent = sendto(socket, response.data(), response.size(), 0,
                              reinterpret_cast<const sockaddr*>(&serverAddress_), addressLength);
  if (sent != -1) logLine(name() + " sent response of length " + std::to_string(sent));
}

std::size_t UDPServer::limit(std::size_t capacity) const {
  const auto most = static_cast<std::int64_t>(capacity);
  return static_cast<std::size_t>(std::clamp<std::int64_t>(bufferLimit_, 0, most));
}

}  // namespace tarnwick
