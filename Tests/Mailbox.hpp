#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace tarnwick::test {

/// Longer than anything here takes on the slowest machine: passed only when a test fails.
inline constexpr std::chrono::seconds deadline{20};

/// Where one thread leaves what another waits for.
template <typename Item>
class Mailbox {
 public:
  void put(Item item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    arrived_.notify_all();
  }

  /// The oldest item, waited for; absent when the deadline has passed.
  std::optional<Item> await(std::chrono::milliseconds limit = deadline) {
    std::unique_lock lock(mutex_);
    if (!arrived_.wait_for(lock, limit, [this] { return !items_.empty(); })) return std::nullopt;
    Item item = std::move(items_.front());
    items_.pop_front();
    return item;
  }

  bool isEmpty() {
    const std::lock_guard lock(mutex_);
    return items_.empty();
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Item> items_;
};

/// Waits until a condition holds that nobody announces; false when the deadline has passed.
template <typename Condition>
bool eventually(Condition holds) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace tarnwick::test
