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

/// Asked for a reply to each datagram that an endpoint has received.
class UDPServerDelegate {
 public:
  virtual ~UDPServerDelegate() = default;

  /// Called on the receive thread after a datagram was queued, one call at a time; the next one is
  /// not read before it returns. It fetches the datagram with UDPServer::recieve(), and returns the
  /// bytes to send back to its sender, if any; a reply that the system refuses to send is dropped.
  /// It must not throw. After endOperation() at most one more call can follow: the one in progress.
  /// Threads that it starts inherit the raised priority and the timer slack of the receive thread.
  [[nodiscard]] virtual std::optional<Data> processMessageForResponse() = 0;
};

/// An endpoint bound to a UDP port on all IPv4 interfaces. Once begun, a thread of its own polls
/// the socket without pause, queues every datagram and asks the delegate for a reply. The thread
/// keeps the endpoint alive until it ends. Any thread may call any member.
class UDPServer final : public std::enable_shared_from_this<UDPServer> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Binds `port`; nothing is read before beginOperation(). `name` labels the log lines. Throws
  /// UDPError: noSocket, setupForNonBlocking, bindSocket or threadLock. A socket that is not begun,
  /// or of a failed call, stays open until the process ends. So pause between retries on a port
  /// that is taken: each costs a descriptor.
  [[nodiscard]] static std::shared_ptr<UDPServer> create(std::string name, std::uint16_t port);

  /// The same with a delegate, null for none, which is held strongly.
  [[nodiscard]] static std::shared_ptr<UDPServer> create(
      std::string name, std::uint16_t port, std::shared_ptr<UDPServerDelegate> delegate);

  /// The same with the longest datagram in bytes, to which longer ones are cut. More than 65500
  /// counts as that, and less than 1 leaves no byte of any.
  [[nodiscard]] static std::shared_ptr<UDPServer> create(
      std::string name, std::uint16_t port, std::int64_t bufferSize,
      std::shared_ptr<UDPServerDelegate> delegate);

  UDPServer(const UDPServer&) = delete;
  UDPServer& operator=(const UDPServer&) = delete;

  /// Starts the receive thread. Throws UDPError::alreadyInProgress while it runs. Throws
  /// std::system_error when no thread can be started and std::bad_alloc when there is no memory for
  /// its buffer; both change nothing. Later a lack of memory costs single datagrams. An endpoint
  /// that was ended may be begun again, but receives nothing any more: its socket is gone.
  void beginOperation();

  /// Lets the receive thread end with its pass under way, and close the socket. Returns at once.
  /// What is queued stays queued.
  void endOperation();

  /// Takes the oldest datagram off the queue; absent when there is none. Never waits. (The spelling
  /// is intended: it is the name that applications call.)
  [[nodiscard]] std::optional<Data> recieve();

  /// Drops every queued datagram.
  void clearRxQueue();

  /// The longest datagram read, in bytes: 65500 unless set.
  [[nodiscard]] std::int64_t bufferLimit() const { return bufferLimit_; }

  /// Sets it, to more than 65500 or less than nothing, too. Lowering takes effect with the next
  /// datagram, raising above the size that the receive thread began with does not.
  void setBufferLimit(std::int64_t limit) { bufferLimit_ = limit; }

  /// The label of the log lines.
  [[nodiscard]] std::string name() const;

  /// Labels the log lines that follow.
  void setName(std::string name);

  /// Closed to others, who call create().
  UDPServer(Private, std::string name, std::uint16_t port,
            std::shared_ptr<UDPServerDelegate> delegate);

 private:
  void receiveProcess(int socket, RunFlag::Run run, Data& buffer);
  void receiveDatagram(int socket, Data& buffer);
  void reply(int socket, const Data& response, socklen_t addressLength);
  [[nodiscard]] std::size_t limit(std::size_t capacity) const;

  std::atomic<int> theSocket_;  // handed to the first receive thread, which closes it; then -1
  sockaddr_in serverAddress_;   // the local address; then, on the receive thread, the last sender's
  std::deque<Data> receiveQueue_ TARNWICK_GUARDED_BY(threadLock_);
  RunFlag okToRun_;
  mutable Mutex threadLock_;
  // A receiver is its endpoint's delegate and owns it: the two keep each other alive, on purpose.
  const std::shared_ptr<UDPServerDelegate> delegate_;
  std::atomic<std::int64_t> bufferLimit_ = 65500;
  std::string name_ TARNWICK_GUARDED_BY(threadLock_);
};

}  // namespace tarnwick
