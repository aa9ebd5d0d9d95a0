#include "Tarnwick/Platform/DispatchQueue.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Tarnwick/Platform/NeverDestroyed.hpp"

namespace tarnwick {

/// The calling thread's turn to drain. The destructor ends it, also after an exception.
class DispatchQueue::Turn {
 public:
  explicit Turn(DispatchQueue& queue) : queue_(queue) {
    const MutexLock lock(queue_.lock_);
    isNested_ = queue_.drainer_ == std::this_thread::get_id();
    if (isNested_) return;
    while (queue_.drainer_ != std::thread::id()) queue_.changed_.wait(queue_.lock_);
    queue_.drainer_ = std::this_thread::get_id();
    waiting_ = queue_.blocks_.size();
    queue_.setReadable(false);
  }

  ~Turn() {
    if (isNested_) return;
    {
      const MutexLock lock(queue_.lock_);
      queue_.drainer_ = std::thread::id();
      if (!queue_.blocks_.empty()) queue_.setReadable(true);  // after a block that threw
    }
    queue_.changed_.notify_all();
  }

  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  /// The number of blocks that were queued when the turn began; 0 for a call from a block.
  [[nodiscard]] std::size_t waiting() const { return waiting_; }

 private:
  DispatchQueue& queue_;
  bool isNested_ = false;
  std::size_t waiting_ = 0;
};

DispatchQueue& DispatchQueue::main() {
  static NeverDestroyed<DispatchQueue> queue;
  return *queue;
}

void DispatchQueue::async(std::function<void()> block) {
  {
    const MutexLock lock(lock_);
    blocks_.push_back(std::move(block));  // may throw: nothing has changed yet
    setReadable(true);
  }
  changed_.notify_all();
}

std::size_t DispatchQueue::drain() {
  const Turn turn(*this);
  for (std::size_t ran = 0; ran < turn.waiting(); ++ran) takeFirst()();
  return turn.waiting();
}

void DispatchQueue::run() {
  for (;;) {
    {
      const MutexLock lock(lock_);
      const bool isNested = drainer_ == std::this_thread::get_id();
      while ((blocks_.empty() || isNested) && !stopped_) changed_.wait(lock_);
      if (std::exchange(stopped_, false)) return;
    }
    drain();
  }
}

void DispatchQueue::stop() {
  {
    const MutexLock lock(lock_);
    stopped_ = true;
  }
  changed_.notify_all();
}

int DispatchQueue::fileDescriptor() const {
  const MutexLock lock(lock_);
  if (readEnd_ == -1) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) == -1) throw std::system_error(errno, std::generic_category(), "pipe");
    for (const int end : ends) {
      fcntl(end, F_SETFD, FD_CLOEXEC);
      fcntl(end, F_SETFL, O_NONBLOCK);
    }
    readEnd_ = ends[0];
    writeEnd_ = ends[1];
    if (!blocks_.empty()) setReadable(true);
  }
  return readEnd_;
}

std::function<void()> DispatchQueue::takeFirst() {
  const MutexLock lock(lock_);
  std::function<void()> block = std::move(blocks_.front());
  blocks_.pop_front();
  return block;
}

void DispatchQueue::setReadable(bool value) const {
  if (readEnd_ == -1 || isReadable_ == value) return;
  isReadable_ = value;
  char byte = 0;
  [[maybe_unused]] const auto count =
      value ? write(writeEnd_, &byte, sizeof byte) : read(readEnd_, &byte, sizeof byte);
}

}  // namespace tarnwick
