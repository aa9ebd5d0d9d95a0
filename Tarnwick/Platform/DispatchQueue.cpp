#include "Tarnwick/Platform/DispatchQueue.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Tarnwick/Platform/NeverDestroyed.hpp"

namespace tarnwick {

/// The calling thread's turn to drain; ends with the block that holds it, also by an exception.
class DispatchQueue::Turn {
 public:
  explicit Turn(DispatchQueue& queue) : queue_(queue) {
    const MutexLock lock(queue_.lock_);
    isNested_ = queue_.drainer_ == std::this_thread::get_id();
    if (isNested_) return;
    while (queue_.drainer_ != std::thread::id()) queue_.changed_.wait(queue_.lock_);
    queue_.drainer_ = std::this_thread::get_id();
    waiting_ = queue_.blocks_.size();
  }

  ~Turn() {
    if (isNested_) return;
    {
      const MutexLock lock(queue_.lock_);
      queue_.drainer_ = std::thread::id();
    }
    queue_.changed_.notify_all();
  }

  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  /// How many blocks waited when the turn began; none for a block's own call.
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
    if (blocks_.empty()) markReadable();
    blocks_.push_back(std::move(block));
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
    if (!blocks_.empty()) markReadable();
  }
  return readEnd_;
}

std::function<void()> DispatchQueue::takeFirst() {
  const MutexLock lock(lock_);
  std::function<void()> block = std::move(blocks_.front());
  blocks_.pop_front();
  if (blocks_.empty()) markUnreadable();
  return block;
}

void DispatchQueue::markReadable() const {
  const char byte = 0;
  if (writeEnd_ != -1) [[maybe_unused]]
    const auto written = write(writeEnd_, &byte, sizeof byte);
}

void DispatchQueue::markUnreadable() const {
  char byte = 0;
  if (readEnd_ != -1) [[maybe_unused]]
    const auto count = read(readEnd_, &byte, sizeof byte);
}

}  // namespace tarnwick
