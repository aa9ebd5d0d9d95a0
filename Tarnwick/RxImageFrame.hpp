#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/Geometry.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Collects the chunks of one announced image until its bytes are complete, and joins them in the
/// order of arrival. The byte count is the only check. Not thread-safe: one thread appends the
/// chunks, then hands the object over to the thread that merges and reads it.
class RxImageFrame final {
 public:
  /// Creates an image of `size` bytes that covers the whole screen of its sender. `size` may be any
  /// integer: memory is allocated only as chunks arrive.
  explicit RxImageFrame(std::int64_t size) : size_(size) {}

  /// The same for an image that covers the rectangle `rect` of the screen.
  RxImageFrame(std::int64_t size, CGRect rect) : size_(size), bounds(rect) {}

  ~RxImageFrame();
  RxImageFrame(RxImageFrame&&) = default;
  RxImageFrame& operator=(RxImageFrame&&) = default;

  /// Appends a chunk. A chunk that would exceed the size is dropped and logged, and the image
  /// becomes corrupt. The chunk that reaches the size makes the image full.
  void appendChunk(Data data);

  /// Joins the chunks into `size` bytes and releases them. Missing bytes are zero; a second call
  /// leaves only zeros. A negative size is a fatal error.
  void mergeChunks();

  /// Returns a copy of the merged bytes. Absent before mergeChunks() and while bytes are missing.
  [[nodiscard]] std::optional<Data> getData() const;

 private:
  std::int64_t size_;
  std::int64_t offset_ = 0;  // the bytes appended so far, at most the size
  std::optional<Data> buffer_;
  std::vector<Data> chunks_;

 public:
  bool isFull = false;           ///< all announced bytes arrived
  std::optional<CGRect> bounds;  ///< in pixels from the screen's top left; absent for all of it
  bool isCorrupt = false;        ///< more bytes arrived than announced
};

}  // namespace tarnwick
