#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/Mutex.hpp"
#include "Tarnwick/Platform/RunFlag.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Replies to the datagrams that an endpoint receives.
class UDPServerDelegate {
 public:
  virtual ~UDPServerDelegate() = default;

  /// Called after a datagram was queued. Fetches it with UDPServer::recieve() and returns the bytes
  /// to send back to its sender, if any. A reply that the system refuses to send is dropped.
  ///
  /// Called on the receive thread, one call at a time. The method may call every member of the
  /// endpoint, endOperation() included, except beginOperation(), and it may drop the last reference
  /// to the endpoint. Until it returns, the thread reads no datagram, and datagrams that the
  /// system's receive buffer cannot hold are lost. It must not throw: std::bad_alloc loses the
  /// reply, and any other exception ends the process. After endOperation() at most one more call
  /// can follow, from the pass in progress. Threads that it starts inherit the priority of the
  /// receive thread and, on Linux, its timer slack.
  [[nodiscard]] virtual std::optional<Data> processMessageForResponse() = 0;
};

/// An endpoint bound to a UDP port on all IPv4 interfaces. After beginOperation(), a receive thread
/// polls the socket without pause. Each pass queues one datagram, if any, and asks the delegate for
/// a reply. The thread keeps the endpoint alive until it ends. Any thread may call any member.
class UDPServer final : public std::enable_shared_from_this<UDPServer> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Creates an endpoint bound to `port`. Reading starts with beginOperation(). `name` labels the
  /// log lines. Throws UDPError: noSocket, setupForNonBlocking, bindSocket or threadLock. The
  /// socket of a failed call, or of an endpoint that is never begun, stays open until the process
  /// ends. Pause between retries on a port in use.
  [[nodiscard]] static std::shared_ptr<UDPServer> create(std::string name, std::uint16_t port);

  /// The same with a delegate, which the endpoint owns; null means no delegate.
  [[nodiscard]] static std::shared_ptr<UDPServer> create(
      std::string name, std::uint16_t port, std::shared_ptr<UDPServerDelegate> delegate);

  /// The same with a limit: longer datagrams are truncated to `bufferSize` bytes. Values above
  /// 65,500 are clamped to 65,500. Below 1, every datagram arrives empty.
  [[nodiscard]] static std::shared_ptr<UDPServer> create(
      std::string name, std::uint16_t port, std::int64_t bufferSize,
      std::shared_ptr<UDPServerDelegate> delegate);

  UDPServer(const UDPServer&) = delete;
  UDPServer& operator=(const UDPServer&) = delete;

  /// Starts the receive thread. Throws UDPError::alreadyInProgress if it was started and not ended,
  /// std::system_error if no thread can be started, and std::bad_alloc if memory runs out; a throw
  /// changes nothing. If memory runs out later, single datagrams are lost. Do not restart an
  /// endpoint after endOperation(): its socket is closed, so the new thread receives nothing.
  void beginOperation();

  /// Ends the receive thread after its current pass; the thread then closes the socket. Returns at
  /// once. Queued datagrams stay queued.
  void endOperation();

  /// Returns the oldest queued datagram and removes it; absent if the queue is empty. Does not wait
  /// for a datagram. (The spelling is intentional: applications call it by this name.)
  [[nodiscard]] std::optional<Data> recieve();

  /// Drops every queued datagram.
  void clearRxQueue();

  /// The maximum number of bytes read of a datagram; 65,500 by default.
  [[nodiscard]] std::int64_t bufferLimit() const { return bufferLimit_; }

  /// Sets the limit without clamping. A change takes effect with the next datagram, up to the limit
  /// at beginOperation(). Below 1, datagrams arrive empty.
  void setBufferLimit(std::int64_t limit) { bufferLimit_ = limit; }

  /// The label of the log lines.
  [[nodiscard]] std::string name() const;

  /// Sets the label of later log lines.
  void setName(std::string name);

  /// Closed to others: use create().
  UDPServer(Private, std::string name, std::uint16_t port,
            std::shared_ptr<UDPServerDelegate> delegate);

 private:
  void receiveProcess(int socket, RunFlag::Run run, Data& buffer);
  void receiveDatagram(int socket, Data& buffer);
  void reply(int socket, const Data& response, socklen_t addressLength);
  [[nodiscard]] std::size_t limit(std::size_t capacity) const;

  std::atomic<int> theSocket_;  // -1 after beginOperation(): the receive thread owns and closes it
  sockaddr_in serverAddress_;   // the local one; then, on the receive thread, the last sender's
  std::deque<Data> receiveQueue_ TARNWICK_GUARDED_BY(threadLock_);
  RunFlag okToRun_;
  mutable Mutex threadLock_;
  // Intended reference cycle: a receiver owns its endpoint and is the endpoint's delegate.
  const std::shared_ptr<UDPServerDelegate> delegate_;
  std::atomic<std::int64_t> bufferLimit_ = 65500;
  std::string name_ TARNWICK_GUARDED_BY(threadLock_);
};

}  // namespace tarnwick
