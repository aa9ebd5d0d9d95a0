#include "Tarnwick/Platform/DataStore.hpp"

#include <algorithm>
#include <bit>
#include <new>
#include <utility>

#include "Tarnwick/Platform/NeverDestroyed.hpp"

namespace tarnwick {
namespace {

// In bytes. For smaller buffers, such as messages and replies, the C library is as fast.
constexpr std::size_t leastSize = 512;

// The maximum number of buffers that are moved under one lock, which takes a few microseconds.
constexpr std::size_t stepsPerLock = 64;

}  // namespace

DataStore& DataStore::shared() {
  static NeverDestroyed<DataStore> store;
  return *store;
}

Data DataStore::copy(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < leastSize) return {bytes.begin(), bytes.end()};
  Data data = room(bytes.size());
  data.assign(bytes.begin(), bytes.end());
  return data;
}

Data DataStore::room(std::size_t size) {
  Data data;
  if (size > mostBytes) {  // never recycled
    data.reserve(size);
    return data;
  }
  const std::size_t capacity = std::bit_ceil(size);
  {
    const MutexLock lock(lock_);
    Shelf& shelf = shelfOf(capacity);
    if (!shelf.blocks.empty()) data = pop(shelf);
  }
  data.clear();
  data.reserve(capacity);
  return data;
}

void DataStore::keep(Data data) noexcept { keep(std::span(&data, 1)); }

void DataStore::keep(std::vector<Data> blocks) noexcept { keep(std::span(blocks)); }

std::size_t DataStore::keptBytes() {
  const MutexLock lock(lock_);
  return bytes_;
}

void DataStore::keep(std::span<Data> blocks) noexcept {
  while (!blocks.empty()) {
    std::array<Data, stepsPerLock> evicted;  // freed after the lock is released
    const MutexLock lock(lock_);
    for (std::size_t step = 0; step < stepsPerLock && !blocks.empty(); ++step) {
      const std::size_t capacity = blocks.front().capacity();
      const bool isKept = capacity >= leastSize && capacity <= mostBytes;
      const bool isFull = bytes_ + capacity > mostBytes;
      if (isKept && isFull && &fullest() != &shelfOf(capacity)) {
        evicted[step] = pop(fullest());
        continue;
      }
      if (isKept && !isFull) push(blocks.front());
      blocks = blocks.subspan(1);  // the caller frees it if it was not recycled
    }
  }
}

void DataStore::push(Data& block) noexcept {
  const std::size_t capacity = block.capacity();
  Shelf& shelf = shelfOf(capacity);
  try {
    shelf.blocks.push_back(std::move(block));
  } catch (const std::bad_alloc&) {  // then the caller frees it
    return;
  }
  shelf.bytes += capacity;
  bytes_ += capacity;
}

Data DataStore::pop(Shelf& shelf) noexcept {
  Data block = std::move(shelf.blocks.back());
  shelf.blocks.pop_back();
  shelf.bytes -= block.capacity();
  bytes_ -= block.capacity();
  return block;
}

DataStore::Shelf& DataStore::fullest() noexcept {
  return *std::max_element(
      shelves_.begin(), shelves_.end(),
      [](const Shelf& left, const Shelf& right) { return left.bytes < right.bytes; });
}

DataStore::Shelf& DataStore::shelfOf(std::size_t capacity) noexcept {
  return shelves_[static_cast<std::size_t>(std::bit_width(capacity)) - 1];
}

}  // namespace tarnwick
