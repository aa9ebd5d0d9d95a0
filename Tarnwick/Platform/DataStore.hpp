#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/Mutex.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Keeps the memory of datagrams and of what they were merged to for the next ones. A block that is
/// freed on another thread than it came from, or that is as large as a picture, makes the C library
/// give memory back to the system, and the next datagram pays for getting it again. Bounded: what
/// is too much is freed. Any thread may use it.
class DataStore final {
 public:
  /// The one of the process, which is never destroyed.
  [[nodiscard]] static DataStore& shared();

  /// A copy of `bytes`, in memory that was kept if there is some.
  [[nodiscard]] Data copy(std::span<const std::uint8_t> bytes);

  /// No bytes, with room for `size`, likewise.
  [[nodiscard]] Data room(std::size_t size);

  /// Keeps the memory of `data`, whose bytes are not needed any more.
  void keep(Data data);

  /// How many bytes are kept, at most mostBytes.
  [[nodiscard]] std::size_t keptBytes();
  static constexpr std::size_t mostBytes = std::size_t{32} << 20;

 private:
  // Kept by the power of two that the room has or exceeds, so that finding some takes no search.
  static constexpr std::size_t kinds = 8 * sizeof(std::size_t);

  Mutex lock_;
  std::array<std::vector<Data>, kinds> shelves_ TARNWICK_GUARDED_BY(lock_);
  std::size_t bytes_ TARNWICK_GUARDED_BY(lock_) = 0;
};

/// Bytes whose memory goes to the store when they are dropped.
class StoredData final {
 public:
  explicit StoredData(Data data = {}) noexcept : data_(std::move(data)) {}
  ~StoredData() { DataStore::shared().keep(std::move(data_)); }
  StoredData(const StoredData&) = default;
  StoredData(StoredData&&) noexcept = default;
  StoredData& operator=(const StoredData&) = default;
  StoredData& operator=(StoredData&&) noexcept = default;

  [[nodiscard]] Data& operator*() { return data_; }
  [[nodiscard]] const Data& operator*() const { return data_; }

 private:
  Data data_;
};

}  // namespace tarnwick
