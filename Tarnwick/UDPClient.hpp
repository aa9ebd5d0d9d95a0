#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/DispatchSemaphore.hpp"
#include "Tarnwick/Platform/Mutex.hpp"
#include "Tarnwick/Platform/RunFlag.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Receives the replies to a sending endpoint.
class UDPClientDelegate {
 public:
  virtual ~UDPClientDelegate() = default;

  /// Called with the bytes of a reply, which may be empty. `data` is valid until the call returns.
  ///
  /// Called on the send thread, one call at a time. The method may call every member of the
  /// endpoint, endOperation() included, except beginOperation() and send() with a completion, and
  /// it may drop the last reference to the endpoint. Until it returns, the thread sends and reads
  /// nothing. It must not throw: std::bad_alloc is ignored, and any other exception ends the
  /// process. After endOperation() at most one more call can follow, from the pass in progress.
  /// Threads that it starts inherit the priority of the send thread and, on Linux, its timer slack.
  virtual void receivedResponse(const Data& data) = 0;
};

/// An endpoint that sends queued messages to one peer over UDP/IPv4. After beginOperation(), a send
/// thread makes at most about 1,000 passes a second. Each pass sends one datagram and polls for one
/// reply. The thread keeps the endpoint alive until it ends. Any thread may call any member.
///
/// A message longer than `bufferLimit` is split into chunks, one per datagram. Chunks after the
/// first are sent only while another message is queued behind them. Keep each message within the
/// limit, or queue another one after it.
///
/// The source address of each reply becomes the peer: later datagrams are sent to it.
class UDPClient final : public std::enable_shared_from_this<UDPClient> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Creates an endpoint that sends to `serverIPAddress`, a text that inet_aton(3) accepts; host
  /// names are not resolved. `name` labels the log lines. Throws UDPError: noSocket,
  /// setupForNonBlocking, badAddress or threadLock. The socket of a failed call, or of an endpoint
  /// that is never begun, stays open until the process ends.
  [[nodiscard]] static std::shared_ptr<UDPClient> create(std::string name,
                                                         const std::string& serverIPAddress,
                                                         std::uint16_t serverPort);

  /// The same with a delegate, which the endpoint owns; null means no delegate.
  [[nodiscard]] static std::shared_ptr<UDPClient> create(
      std::string name, const std::string& serverIPAddress, std::uint16_t serverPort,
      std::shared_ptr<UDPClientDelegate> delegate);

  /// The same with the maximum length of a datagram in bytes. Values above 65,500 are clamped to
  /// 65,500. Below 1, every datagram is sent empty.
  [[nodiscard]] static std::shared_ptr<UDPClient> create(std::string name,
                                                         const std::string& serverIPAddress,
                                                         std::uint16_t serverPort,
                                                         std::int64_t bufferSize);

  /// The same with both a limit and a delegate.
  [[nodiscard]] static std::shared_ptr<UDPClient> create(
      std::string name, const std::string& serverIPAddress, std::uint16_t serverPort,
      std::int64_t bufferSize, std::shared_ptr<UDPClientDelegate> delegate);

  /// Closed to others: use create().
  UDPClient(Private, std::string name, const std::string& serverIPAddress, std::uint16_t serverPort,
            std::shared_ptr<UDPClientDelegate> delegate);
  UDPClient(const UDPClient&) = delete;
  UDPClient& operator=(const UDPClient&) = delete;

  /// Starts the send thread. Throws UDPError::alreadyInProgress if it was started and not ended,
  /// std::system_error if no thread can be started, and std::bad_alloc if memory runs out; a throw
  /// changes nothing. If memory runs out later, single replies are lost. Do not restart an endpoint
  /// after endOperation(): its socket is closed, so nothing is sent.
  void beginOperation();

  /// Ends the send thread after its current pass; the thread then closes the socket. Drops the
  /// queued messages. Returns at once.
  void endOperation();

  /// Queues a text and returns at once, also before beginOperation(). Drops a text that is not
  /// valid UTF-8. A queue that holds 100 messages is emptied first.
  void send(std::string_view message);

  /// Queues bytes in the same way.
  void send(Data data);

  /// Queues a text, waits up to one second for the next reply from any address, and calls
  /// `completion` with that reply. Without a reply the argument is absent. Another reply during the
  /// call is stored and answers the next call at once. If two threads call it at the same time, one
  /// may get no reply. Do not call it from receivedResponse(): that blocks the send thread, which
  /// reads the replies.
  ///
  /// `completion` is called on the calling thread, before this function returns. It may call any
  /// member, endOperation() included, but must not drop the last reference to the endpoint. Only
  /// the caller waits for it. Its exceptions propagate to the caller; an empty `completion` throws
  /// std::bad_function_call.
  void send(std::string_view message, const std::function<void(std::optional<Data>)>& completion);

  /// Drops the queued messages, but not the unsent chunks of the current message.
  void resetMessageQueue();

  /// The maximum length of a datagram in bytes; 65,500 by default.
  [[nodiscard]] std::int64_t bufferLimit() const { return bufferLimit_; }

  /// Sets the limit without clamping. A change takes effect with the next datagram, up to the limit
  /// at beginOperation(). Below 1, datagrams are sent empty. A datagram too long for UDP is retried
  /// while another message is queued behind it.
  void setBufferLimit(std::int64_t limit) { bufferLimit_ = limit; }

  /// The label of the log lines.
  [[nodiscard]] std::string name() const;

  /// Sets the label of later log lines.
  void setName(std::string name);

 private:
  /// The state of a send thread: its socket, the current message with the number of its bytes
  /// already sent, and the buffer for replies.
  struct Transfer {
    const int socket;
    Data buffer;
    Data current{};
    std::size_t offset = 0;
    socklen_t addressLength = sizeof(sockaddr_in);
  };

  class Waiting;

  void sendProcess(Transfer& transfer, RunFlag::Run run);
  void sendDatagram(Transfer& transfer);
  void receiveResponse(Transfer& transfer);
  void notifyWaitingCaller(const Data& response);
  [[nodiscard]] std::size_t limit(std::size_t capacity) const;

  std::atomic<int> theSocket_;  // -1 after beginOperation(): the send thread owns and closes it
  sockaddr_in serverAddress_;   // the peer's; the send thread sets it to the last reply's source
  std::deque<Data> sendQueue_ TARNWICK_GUARDED_BY(threadLock_);
  RunFlag okToRun_;
  mutable Mutex threadLock_;
  // Intended reference cycle: a sender owns its endpoint and is the endpoint's delegate.
  const std::shared_ptr<UDPClientDelegate> delegate_;
  const std::size_t maxQueueLength_ = 100;
  DispatchSemaphore semaphore_;
  std::optional<Data> responseForNotify_ TARNWICK_GUARDED_BY(threadLock_);
  bool useSemaphore_ TARNWICK_GUARDED_BY(threadLock_) = false;
  std::atomic<std::int64_t> bufferLimit_ = 65500;
  std::string name_ TARNWICK_GUARDED_BY(threadLock_);
};

}  // namespace tarnwick
