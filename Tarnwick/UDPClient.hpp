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

/// Told of each datagram that comes back to a sending endpoint.
class UDPClientDelegate {
 public:
  virtual ~UDPClientDelegate() = default;

  /// Called on the send thread with the reply's bytes, of which there may be none; one call at a
  /// time, and nothing is sent before it returns. It must not throw. After endOperation() at most
  /// one more call can follow: the one in progress. Threads that it starts inherit the raised
  /// priority and the timer slack of the send thread.
  virtual void receivedResponse(const Data& data) = 0;
};

/// An endpoint that sends to one peer over UDP/IPv4. Messages wait on a queue; once begun, a thread
/// of its own makes at most about a thousand passes a second, each of which sends one datagram and
/// polls for one reply. The thread keeps the endpoint alive until it ends. Any thread may call any
/// member.
///
/// A message longer than `bufferLimit` leaves as several datagrams, but only while another message
/// waits behind it: the queue is what drives the passes, and a peer relies on the order alone. So
/// keep each message within the limit, or queue another one after it.
///
/// Whoever replies is the peer from then on: what follows is sent there.
class UDPClient final : public std::enable_shared_from_this<UDPClient> {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Aims at a peer, whose address is text as inet_aton(3) takes it: host names are not looked up.
  /// `name` labels the log lines. Throws UDPError: noSocket, setupForNonBlocking, badAddress or
  /// threadLock. A socket that is not begun, or of a failed call, stays open until the process
  /// ends.
  [[nodiscard]] static std::shared_ptr<UDPClient> create(std::string name,
                                                         const std::string& serverIPAddress,
                                                         std::uint16_t serverPort);

  /// The same with a delegate, null for none, which is held strongly.
  [[nodiscard]] static std::shared_ptr<UDPClient> create(
      std::string name, const std::string& serverIPAddress, std::uint16_t serverPort,
      std::shared_ptr<UDPClientDelegate> delegate);

  /// The same with the longest datagram in bytes: more than 65500 counts as that, and less than 1
  /// sends empty datagrams.
  [[nodiscard]] static std::shared_ptr<UDPClient> create(std::string name,
                                                         const std::string& serverIPAddress,
                                                         std::uint16_t serverPort,
                                                         std::int64_t bufferSize);

  /// The same with both.
  [[nodiscard]] static std::shared_ptr<UDPClient> create(
      std::string name, const std::string& serverIPAddress, std::uint16_t serverPort,
      std::int64_t bufferSize, std::shared_ptr<UDPClientDelegate> delegate);

  /// Closed to others, who call create().
  UDPClient(Private, std::string name, const std::string& serverIPAddress, std::uint16_t serverPort,
            std::shared_ptr<UDPClientDelegate> delegate);
  UDPClient(const UDPClient&) = delete;
  UDPClient& operator=(const UDPClient&) = delete;

  /// Starts the send thread. Throws UDPError::alreadyInProgress while it runs. Throws
  /// std::system_error when no thread can be started and std::bad_alloc when there is no memory for
  /// its buffer; both change nothing. Later a lack of memory costs single replies. An endpoint that
  /// was ended may be begun again, but sends nothing any more: its socket is gone.
  void beginOperation();

  /// Lets the send thread end with its pass under way, and close the socket; drops the messages
  /// that wait. Returns at once.
  void endOperation();

  /// Queues a text and returns at once, also before beginOperation(); one that is not valid UTF-8
  /// is dropped. A queue that holds 100 messages is emptied first: what is newest counts.
  void send(std::string_view message);

  /// Queues bytes likewise.
  void send(Data data);

  /// Queues a text and waits up to one second for the next reply, from whomever; then calls
  /// `completion`, before it returns, with the reply or with none. A second reply that comes
  /// while a call lasts is kept, and answers the next call at once. What `completion` throws passes
  /// to the caller, as does the std::bad_function_call of an empty one. Do not call it from
  /// receivedResponse(): that blocks the send thread, which reads the replies.
  void send(std::string_view message, const std::function<void(std::optional<Data>)>& completion);

  /// Drops the messages that wait; not the rest of one that has begun to leave.
  void resetMessageQueue();

  /// The longest datagram in bytes: 65500 unless set.
  [[nodiscard]] std::int64_t bufferLimit() const { return bufferLimit_; }

  /// Sets it, to more than 65500 or less than nothing, too. Lowering takes effect with the next
  /// datagram, raising above the size that the send thread began with does not. What UDP cannot
  /// carry fails, and is tried again as long as another message waits.
  void setBufferLimit(std::int64_t limit) { bufferLimit_ = limit; }

  /// The label of the log lines.
  [[nodiscard]] std::string name() const;

  /// Labels the log lines that follow.
  void setName(std::string name);

 private:
  /// What a send thread works with: its socket, the message that it is sending and how far it has
  /// come, and the room for a reply.
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

  std::atomic<int> theSocket_;  // handed to the first send thread, which closes it; then -1
  sockaddr_in serverAddress_;   // the peer's; on the send thread, that of whoever replied last
  std::deque<Data> sendQueue_ TARNWICK_GUARDED_BY(threadLock_);
  RunFlag okToRun_;
  mutable Mutex threadLock_;
  // A sender is its endpoint's delegate and owns it: the two keep each other alive, on purpose.
  const std::shared_ptr<UDPClientDelegate> delegate_;
  const std::size_t maxQueueLength_ = 100;
  DispatchSemaphore semaphore_;
  std::optional<Data> responseForNotify_ TARNWICK_GUARDED_BY(threadLock_);
  bool useSemaphore_ TARNWICK_GUARDED_BY(threadLock_) = false;
  std::atomic<std::int64_t> bufferLimit_ = 65500;
  std::string name_ TARNWICK_GUARDED_BY(threadLock_);
};

}  // namespace tarnwick
