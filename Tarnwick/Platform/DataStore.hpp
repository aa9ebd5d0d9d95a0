#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
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

  /// Keeps the memory of `data`, whose bytes are not needed any more, in place of what fills the
  /// store most.
  void keep(Data data) noexcept;

  /// The same for several, at once: who receives meanwhile waits for the store but once.
  void keep(std::vector<Data> blocks) noexcept;

  /// How many bytes are kept, at most mostBytes.
  [[nodiscard]] std::size_t keptBytes();
  static constexpr std::size_t mostBytes = std::size_t{32} << 20;

 private:
  // Kept by the power of two that the room has or exceeds, so that finding some takes no search.
  static constexpr std::size_t kinds = 8 * sizeof(std::size_t);

  void add(Data data) noexcept TARNWICK_REQUIRES(lock_);

  /// Frees memory of the kind that most is kept of, so that what an ended stream has left makes
  /// way.
  void makeRoom(std::size_t size) noexcept TARNWICK_REQUIRES(lock_);

  Mutex lock_;
  std::array<std::vector<Data>, kinds> shelves_ TARNWICK_GUARDED_BY(lock_);
  std::size_t bytes_ TARNWICK_GUARDED_BY(lock_) = 0;
};

}  // namespace tarnwick
