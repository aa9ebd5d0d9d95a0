#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Collects the chunks of one announced video frame until its bytes are complete, and joins them in
/// the order of arrival. The byte count is the only check. Not thread-safe: one thread appends the
/// chunks, then hands the object over to the thread that merges and reads it.
class RxVideoFrame final {
 public:
  /// Creates a frame of `size` bytes with the peer's number for it. `size` may be any integer:
  /// memory is allocated only as chunks arrive.
  RxVideoFrame(std::int64_t frame, std::int64_t size) : frame_(frame), size_(size) {}

  ~RxVideoFrame();
  RxVideoFrame(RxVideoFrame&&) = default;
  RxVideoFrame& operator=(RxVideoFrame&&) = default;

  /// Appends a chunk. A chunk that would exceed the size is dropped and logged, and the frame
  /// becomes corrupt. The chunk that reaches the size makes the frame full.
  void appendChunk(Data data);

  /// Joins the chunks into `size` bytes and releases them. Missing bytes are zero; a second call
  /// leaves only zeros. A negative size is a fatal error.
  void mergeChunks();

  /// Returns a copy of the merged bytes. Absent before mergeChunks() and while bytes are missing.
  [[nodiscard]] std::optional<Data> getData() const;

  /// The peer's number for the frame.
  [[nodiscard]] std::int64_t getFrame() const { return frame_; }

 private:
  std::int64_t frame_;
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
