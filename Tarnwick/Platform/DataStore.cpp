#include "Tarnwick/Platform/DataStore.hpp"

#include <bit>
#include <new>
#include <utility>

#include "Tarnwick/Platform/NeverDestroyed.hpp"

namespace tarnwick {
namespace {

// What is smaller, a message or an answer, the C library handles as fast.
constexpr std::size_t leastSize = 512;

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
  if (size > mostBytes) {  // which is never kept
    data.reserve(size);
    return data;
  }
  const std::size_t capacity = std::bit_ceil(size);
  {
    const MutexLock lock(lock_);
    std::vector<Data>& shelf = shelves_[static_cast<std::size_t>(std::countr_zero(capacity))];
    if (!shelf.empty()) {
      data = std::move(shelf.back());
      shelf.pop_back();
      bytes_ -= data.capacity();
    }
  }
  data.clear();
  data.reserve(capacity);
  return data;
}

void DataStore::keep(Data data) noexcept {
  const MutexLock lock(lock_);
  add(std::move(data));
}

void DataStore::keep(std::vector<Data> blocks) noexcept {
  const MutexLock lock(lock_);
  for (Data& block : blocks) add(std::move(block));
}

std::size_t DataStore::keptBytes() {
  const MutexLock lock(lock_);
  return bytes_;
}

void DataStore::add(Data data) noexcept {
  const std::size_t capacity = data.capacity();
  if (capacity < leastSize || capacity > mostBytes) return;
  makeRoom(capacity);
  try {
    shelves_[static_cast<std::size_t>(std::bit_width(capacity)) - 1].push_back(std::move(data));
    bytes_ += capacity;
  } catch (const std::bad_alloc&) {  // then it is freed
  }
}

void DataStore::makeRoom(std::size_t size) noexcept {
  while (bytes_ + size > mostBytes) {
    std::size_t fullest = 0;
    for (std::size_t kind = 1; kind < kinds; ++kind) {
      if (shelves_[kind].size() << kind > shelves_[fullest].size() << fullest) fullest = kind;
    }
    for (auto& shelf = shelves_[fullest]; bytes_ + size > mostBytes && !shelf.empty();) {
      bytes_ -= shelf.back().capacity();
      shelf.pop_back();
    }
  }
}

}  // namespace tarnwick
