#include "Tarnwick/RxVideoFrame.hpp"

#include <utility>

#include "Tarnwick/Platform/Arithmetic.hpp"
#include "Tarnwick/Platform/FatalError.hpp"
#include "Tarnwick/Platform/Log.hpp"

namespace tarnwick {

void RxVideoFrame::appendChunk(Data data) {
  const std::int64_t end = checkedSum(offset_, std::ssize(data));
  if (size_ < end) {
    logLine("Append chunk overflow - (RxVideoFrame)");
    isCorrupt = true;
    return;
  }
  chunks_.push_back(std::move(data));
  offset_ = end;
  if (offset_ == size_) isFull = true;
}

void RxVideoFrame::mergeChunks() {
  if (size_ < 0) fatalError("Arithmetic overflow");
  Data& buffer = buffer_.emplace();
  buffer.reserve(static_cast<std::size_t>(size_));
  for (const Data& chunk : chunks_) buffer.insert(buffer.end(), chunk.begin(), chunk.end());
  buffer.resize(static_cast<std::size_t>(size_));
  std::vector<Data>().swap(chunks_);
}

std::optional<Data> RxVideoFrame::getData() const {
  if (!buffer_ || offset_ != size_) return std::nullopt;
  return buffer_;
}

}  // namespace tarnwick
