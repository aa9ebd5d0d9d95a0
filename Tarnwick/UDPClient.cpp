#include "Tarnwick/UDPClient.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Platform/Memory.hpp"
#include "Tarnwick/Platform/NSThread.hpp"
#include "Tarnwick/Platform/Text.hpp"
#include "Tarnwick/UDPError.hpp"

namespace tarnwick {
namespace {

using namespace std::chrono_literals;

constexpr int noDescriptor = -1;
constexpr double threadPriority = 0.6;
constexpr auto pause = 1ms;        // between two passes of the send thread
constexpr auto responseTime = 1s;  // maximum wait of a caller for a reply

/// Exceeds every UDP payload over IPv4 (RFC 768, RFC 791): longer datagrams fail in any case.
constexpr std::size_t largestBuffer = 65535;

int openSocket() {
  const int descriptor = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (descriptor == -1) throw UDPError(UDPError::noSocket);
  if (fcntl(descriptor, F_SETFL, O_NONBLOCK) == -1) throw UDPError(UDPError::setupForNonBlocking);
  return descriptor;
}

sockaddr_in peerAddress(const std::string& text, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (inet_aton(text.c_str(), &address.sin_addr) == 0) throw UDPError(UDPError::badAddress);
  return address;
}

}  // namespace

/// While an instance exists, the send thread passes replies to the waiting caller.
class UDPClient::Waiting {
 public:
  explicit Waiting(UDPClient& client) : client_(client) { set(true); }
  ~Waiting() { set(false); }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

 private:
  void set(bool isWaiting) {
    const MutexLock lock(client_.threadLock_);
    client_.useSemaphore_ = isWaiting;
  }

  UDPClient& client_;
};

UDPClient::UDPClient(Private, std::string name, const std::string& serverIPAddress,
                     std::uint16_t serverPort, std::shared_ptr<UDPClientDelegate> delegate)
    : theSocket_(openSocket()),
      serverAddress_(peerAddress(serverIPAddress, serverPort)),
      delegate_(std::move(delegate)),
      name_(std::move(name)) {
  if (!threadLock_.isUsable() || !semaphore_.isUsable()) throw UDPError(UDPError::threadLock);
}

std::shared_ptr<UDPClient> UDPClient::create(std::string name, const std::string& serverIPAddress,
                                             std::uint16_t serverPort) {
  return create(std::move(name), serverIPAddress, serverPort, nullptr);
}

std::shared_ptr<UDPClient> UDPClient::create(std::string name, const std::string& serverIPAddress,
                                             std::uint16_t serverPort,
                                             std::shared_ptr<UDPClientDelegate> delegate) {
  return std::make_shared<UDPClient>(Private{}, std::move(name), serverIPAddress, serverPort,
                                     std::move(delegate));
}

std::shared_ptr<UDPClient> UDPClient::create(std::string name, const std::string& serverIPAddress,
                                             std::uint16_t serverPort, std::int64_t bufferSize) {
  return create(std::move(name), serverIPAddress, serverPort, bufferSize, nullptr);
}

std::shared_ptr<UDPClient> UDPClient::create(std::string name, const std::string& serverIPAddress,
                                             std::uint16_t serverPort, std::int64_t bufferSize,
                                             std::shared_ptr<UDPClientDelegate> delegate) {
  auto client = create(std::move(name), serverIPAddress, serverPort, std::move(delegate));
  client->setBufferLimit(std::min(client->bufferLimit(), bufferSize));
  return client;
}

void UDPClient::beginOperation() {
  ifMemoryAllows([this] { logLine("Begin Operation for " + name()); });
  const std::optional<RunFlag::Run> run = okToRun_.begin();
  if (!run) throw UDPError(UDPError::alreadyInProgress);
  const int socket = theSocket_.exchange(noDescriptor);
  try {
    Transfer transfer{.socket = socket, .buffer = Data(limit(largestBuffer))};
    NSThread::detachNewThread(
        [client = shared_from_this(), run = *run, transfer = std::move(transfer)]() mutable {
          client->sendProcess(transfer, run);
        });
  } catch (...) {
    theSocket_ = socket;
    okToRun_.end(*run);
    throw;
  }
}

void UDPClient::endOperation() {
  ifMemoryAllows([this] { logLine("End Operation for " + name()); });
  okToRun_.end();
  resetMessageQueue();
}

void UDPClient::send(std::string_view message) {
  if (!isValidUTF8(message)) return;
  send(bytes(message));
}

void UDPClient::send(Data data) {
  const MutexLock lock(threadLock_);
  // By design a full queue is emptied, not trimmed by one: all of its messages are outdated.
  if (sendQueue_.size() >= maxQueueLength_) sendQueue_.clear();
  sendQueue_.push_back(std::move(data));
}

void UDPClient::send(std::string_view message,
                     const std::function<void(std::optional<Data>)>& completion) {
  const Waiting waiting(*this);
  send(message);
  std::optional<Data> response;
  if (semaphore_.wait(responseTime)) {
    const MutexLock lock(threadLock_);
    response = responseForNotify_;
  }
  completion(std::move(response));
}

void UDPClient::resetMessageQueue() {
  const MutexLock lock(threadLock_);
  sendQueue_.clear();
}

std::string UDPClient::name() const {
  const MutexLock lock(threadLock_);
  return name_;
}

void UDPClient::setName(std::string name) {
  const MutexLock lock(threadLock_);
  name_ = std::move(name);
}

void UDPClient::sendProcess(Transfer& transfer, RunFlag::Run run) {
  NSThread::setThreadPriority(threadPriority);
  ifMemoryAllows([this] { logLine("Send process running for " + name()); });
  while (okToRun_.isRunning(run)) {
    sendDatagram(transfer);
    ifMemoryAllows([&] { receiveResponse(transfer); });
    NSThread::sleep(pause);
  }
  if (transfer.socket != noDescriptor) close(transfer.socket);
}

void UDPClient::sendDatagram(Transfer& transfer) {
  const MutexLock lock(threadLock_);
  // With an empty queue the rest of the current message waits, too, until another message is
  // queued. One datagram per message is thus the normal case.
  if (sendQueue_.empty()) return;
  if (transfer.offset == transfer.current.size()) {
    transfer.current = std::move(sendQueue_.front());
    transfer.offset = 0;
    sendQueue_.pop_front();
  }
  const std::size_t length =
      std::min(limit(transfer.buffer.size()), transfer.current.size() - transfer.offset);
  const ssize_t sent =
      sendto(transfer.socket, transfer.current.data() + transfer.offset, length, 0,
             reinterpret_cast<const sockaddr*>(&serverAddress_), transfer.addressLength);
  if (sent != -1) transfer.offset += length;  // otherwise a later pass retries the chunk
}

void UDPClient::receiveResponse(Transfer& transfer) {
  Data& buffer = transfer.buffer;
  // The source of a reply becomes the peer: recvfrom() overwrites the old address.
  const ssize_t received =
      recvfrom(transfer.socket, buffer.data(), limit(buffer.size()), 0,
               reinterpret_cast<sockaddr*>(&serverAddress_), &transfer.addressLength);
  if (received == -1) return;
  const Data response(buffer.begin(), buffer.begin() + received);
  notifyWaitingCaller(response);
  if (delegate_) delegate_->receivedResponse(response);
}

void UDPClient::notifyWaitingCaller(const Data& response) {
  {
    const MutexLock lock(threadLock_);
    if (!useSemaphore_) return;
    responseForNotify_ = response;
  }
  semaphore_.signal();
}

std::size_t UDPClient::limit(std::size_t capacity) const {
  const auto most = static_cast<std::int64_t>(capacity);
  return static_cast<std::size_t>(std::clamp<std::int64_t>(bufferLimit_, 0, most));
}

}  // namespace tarnwick
