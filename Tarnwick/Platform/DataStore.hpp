#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/Mutex.hpp"

namespace tarnwick {

/// Recycles the buffers of datagrams and merged objects. Without it, large buffers and buffers
/// freed on another thread go back to the kernel, and the next datagram pays for the page faults.
/// Holds at most 32 MB; the excess is freed. Any thread may use it.
class DataStore final {
 public:
  /// The store of the process, which is never destroyed.
  [[nodiscard]] static DataStore& shared();

  /// A copy of `bytes`, in a recycled buffer if possible. From 512 bytes to 32 MB, the capacity is
  /// at least the size rounded up to a power of two.
  [[nodiscard]] Data copy(std::span<const std::uint8_t> bytes);

  /// An empty buffer with a capacity for `size` bytes, also recycled if possible.
  [[nodiscard]] Data room(std::size_t size);

  /// Recycles the buffer of `data`. If the store is full, buffers of the size class with the
  /// largest total are freed, or `data` if it is of that class. Buffers under 512 bytes or over 32
  /// MB are freed at once.
  void keep(Data data) noexcept;

  /// The same for several buffers. The lock is held for a bounded number of them at a time, and
  /// buffers are freed after it, so that receive threads never wait long for the store.
  void keep(std::vector<Data> blocks) noexcept;

  /// The total capacity of the buffers in the store, at most mostBytes.
  [[nodiscard]] std::size_t keptBytes();
  static constexpr std::size_t mostBytes = std::size_t{32} << 20;

 private:
  // A size class: buffers whose capacities have the same highest bit, so that no search is needed.
  struct Shelf {
    std::deque<Data> blocks;  // unlike a vector, moves no element when it grows
    std::size_t bytes = 0;
  };

  void keep(std::span<Data> blocks) noexcept;
  void push(Data& block) noexcept TARNWICK_REQUIRES(lock_);
  Data pop(Shelf& shelf) noexcept TARNWICK_REQUIRES(lock_);
  [[nodiscard]] Shelf& fullest() noexcept TARNWICK_REQUIRES(lock_);
  [[nodiscard]] Shelf& shelfOf(std::size_t capacity) noexcept TARNWICK_REQUIRES(lock_);

  Mutex lock_;
  std::array<Shelf, std::bit_width(mostBytes)> shelves_ TARNWICK_GUARDED_BY(lock_);
  std::size_t bytes_ TARNWICK_GUARDED_BY(lock_) = 0;
};

}  // namespace tarnwick
