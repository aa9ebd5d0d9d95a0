#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Collects the chunks of one announced audio recording until its bytes are complete, and joins
/// them. Chunks have no order but that of arrival, and the byte count is the only check. Not
/// locked: it is fed by one thread, and then handed over to the one that merges and reads it.
class RxAudioFrame final {
 public:
  /// A recording of `size` bytes, any number, with the number that its sender gave it. Nothing is
  /// allocated for bytes that have not come.
  RxAudioFrame(std::int64_t number, std::int64_t size) : recorded(number), size_(size) {}

  ~RxAudioFrame();
  RxAudioFrame(RxAudioFrame&&) = default;
  RxAudioFrame& operator=(RxAudioFrame&&) = default;

  /// Takes the next chunk. One that would exceed the size is dropped, logged, and makes the
  /// recording corrupt; the one that reaches the size makes it full.
  void appendChunk(Data data);

  /// Joins the chunks to `size` bytes, which are zero where none came, and lets go of them: a
  /// second call leaves zeros only. A negative size is a fatal error.
  void mergeChunks();

  /// A copy of the merged bytes. Absent before mergeChunks(), while bytes are missing, and always
  /// for the number 0: a recording that its sender did not number is not one.
  [[nodiscard]] std::optional<Data> getData() const;

  std::int64_t recorded;  ///< the number that the sender gave the recording

 private:
  std::int64_t size_;
  std::int64_t offset_ = 0;  // the bytes taken so far, never more than the size
  std::vector<Data> chunks_;

 public:
  bool isFull = false;     ///< all announced bytes are there
  bool isCorrupt = false;  ///< more bytes came than were announced

 private:
  std::optional<Data> buffer_;
};

}  // namespace tarnwick
