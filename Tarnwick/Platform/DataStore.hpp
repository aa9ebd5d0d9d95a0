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

/// Keeps the memory of datagrams and of what they were merged to for the next ones. A block that is
/// freed on another thread than it came from, or that is as large as a picture, makes the C library
/// give memory back to the system, and the next datagram pays for getting it again. Bounded: what
/// is too much is freed. Any thread may use it.
class DataStore final {
 public:
  /// The one of the process, which is never destroyed.
  [[nodiscard]] static DataStore& shared();

  /// A copy of `bytes`, in memory that was kept if there is some. It holds up to twice as many,
  /// the next power of two.
  [[nodiscard]] Data copy(std::span<const std::uint8_t> bytes);

  /// No bytes, with room for `size`, likewise.
  [[nodiscard]] Data room(std::size_t size);

  /// Recycles the memory of `data`, whose bytes are not needed any more. When the store is full,
  /// the memory replaces memory of the kind that fills it most, or is freed if it is of that kind.
  void keep(Data data) noexcept;

  /// The same for several buffers. The lock is held for a bounded number of them at a time, and no
  /// memory is freed under it, so that receive threads never wait long for the store.
  void keep(std::vector<Data> blocks) noexcept;

  /// How many bytes are kept, at most mostBytes.
  [[nodiscard]] std::size_t keptBytes();
  static constexpr std::size_t mostBytes = std::size_t{32} << 20;

 private:
  // Memory whose capacity has the same highest power of two, so that finding some takes no search.
  struct Shelf {
    std::deque<Data> blocks;  // which moves none of them when it grows, unlike a vector
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
