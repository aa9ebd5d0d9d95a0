#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Collects the chunks of one announced audio recording until its bytes are complete, and joins
/// them in the order of arrival. The byte count is the only check. Not thread-safe: one thread
/// appends the chunks, then hands the object over to the thread that merges and reads it.
class RxAudioFrame final {
 public:
  /// Creates a recording of `size` bytes with the peer's number for it. `size` may be any integer:
  /// memory is allocated only as chunks arrive.
  RxAudioFrame(std::int64_t number, std::int64_t size) : recorded(number), size_(size) {}

  ~RxAudioFrame();
  RxAudioFrame(RxAudioFrame&&) = default;
  RxAudioFrame& operator=(RxAudioFrame&&) = default;

  /// Appends a chunk. A chunk that would exceed the size is dropped and logged, and the recording
  /// becomes corrupt. The chunk that reaches the size makes the recording full.
  void appendChunk(Data data);

  /// Joins the chunks into `size` bytes and releases them. Missing bytes are zero; a second call
  /// leaves only zeros. A negative size is a fatal error.
  void mergeChunks();

  /// Returns a copy of the merged bytes. Absent before mergeChunks(), while bytes are missing, and
  /// always for the number 0: such recordings are not delivered.
  [[nodiscard]] std::optional<Data> getData() const;

  std::int64_t recorded;  ///< the peer's number for the recording

 private:
  std::int64_t size_;
  std::int64_t offset_ = 0;  // the bytes appended so far, at most the size
  std::vector<Data> chunks_;

 public:
  bool isFull = false;     ///< all announced bytes arrived
  bool isCorrupt = false;  ///< more bytes arrived than announced

 private:
  std::optional<Data> buffer_;
};

}  // namespace tarnwick
