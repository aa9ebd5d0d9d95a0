#include "Tarnwick/RxAudioFrame.hpp"

#include <utility>

#include "Tarnwick/Platform/Arithmetic.hpp"
#include "Tarnwick/Platform/DataStore.hpp"
#include "Tarnwick/Platform/FatalError.hpp"
#include "Tarnwick/Platform/Log.hpp"

namespace tarnwick {

RxAudioFrame::~RxAudioFrame() {
  DataStore::shared().keep(std::move(chunks_));
  if (buffer_) DataStore::shared().keep(std::move(*buffer_));
}

void RxAudioFrame::appendChunk(Data data) {
  const std::int64_t end = checkedSum(offset_, std::ssize(data));
  if (size_ < end) {
    logLine("Append chunk overflow - (RxAudioFrame)");
    isCorrupt = true;
    return;
  }
  chunks_.push_back(std::move(data));
  offset_ = end;
  if (offset_ == size_) isFull = true;
}

void RxAudioFrame::mergeChunks() {
  if (size_ < 0) fatalError("Arithmetic overflow");
  const auto size = static_cast<std::size_t>(size_);
  Data& buffer = buffer_.emplace(DataStore::shared().room(size));
  for (const Data& chunk : chunks_) buffer.insert(buffer.end(), chunk.begin(), chunk.end());
  buffer.resize(size);
  DataStore::shared().keep(std::exchange(chunks_, {}));
}

std::optional<Data> RxAudioFrame::getData() const {
  if (!buffer_ || offset_ != size_ || recorded == 0) return std::nullopt;
  return buffer_;
}

}  // namespace tarnwick
