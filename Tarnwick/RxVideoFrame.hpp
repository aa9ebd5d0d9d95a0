#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Collects the chunks of one announced video frame until its bytes are complete, and joins them.
/// Chunks have no order but that of arrival, and the byte count is the only check. Not locked: it
/// is fed by one thread, and then handed over to the one that merges and reads it.
class RxVideoFrame final {
 public:
  /// A frame of `size` bytes, any number, with the number that its sender gave it. Nothing is
  /// allocated for bytes that have not come.
  RxVideoFrame(std::int64_t frame, std::int64_t size) : frame_(frame), size_(size) {}

  ~RxVideoFrame();
  RxVideoFrame(RxVideoFrame&&) = default;
  RxVideoFrame& operator=(RxVideoFrame&&) = default;

  /// Takes the next chunk. One that would exceed the size is dropped, logged, and makes the frame
  /// corrupt; the one that reaches the size makes it full.
  void appendChunk(Data data);

  /// Joins the chunks to `size` bytes, which are zero where none came, and lets go of them: a
  /// second call leaves zeros only. A negative size is a fatal error.
  void mergeChunks();

  /// A copy of the merged bytes. Absent before mergeChunks(), and while bytes are missing.
  [[nodiscard]] std::optional<Data> getData() const;

  /// The number that the sender gave the frame.
  [[nodiscard]] std::int64_t getFrame() const { return frame_; }

 private:
  std::int64_t frame_;
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
