#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/Geometry.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Collects the chunks of one announced image until its bytes are complete, and joins them.
/// Chunks have no order but that of arrival, and the byte count is the only check. Not locked: it
/// is fed by one thread, and then handed over to the one that merges and reads it.
class RxImageFrame final {
 public:
  /// An image of `size` bytes, any number, that covers all of its sender's screen. Nothing is
  /// allocated for bytes that have not come.
  explicit RxImageFrame(std::int64_t size) : size_(size) {}

  /// The same, for an image that covers the rectangle `rect` of the screen.
  RxImageFrame(std::int64_t size, CGRect rect) : size_(size), bounds(rect) {}

  ~RxImageFrame();
  RxImageFrame(RxImageFrame&&) = default;
  RxImageFrame& operator=(RxImageFrame&&) = default;

  /// Takes the next chunk. One that would exceed the size is dropped, logged, and makes the image
  /// corrupt; the one that reaches the size makes it full.
  void appendChunk(Data data);

  /// Joins the chunks to `size` bytes, which are zero where none came, and lets go of them: a
  /// second call leaves zeros only. A negative size is a fatal error.
  void mergeChunks();

  /// A copy of the merged bytes. Absent before mergeChunks(), and while bytes are missing.
  [[nodiscard]] std::optional<Data> getData() const;

 private:
  std::int64_t size_;
  std::int64_t offset_ = 0;  // the bytes taken so far, never more than the size
  std::optional<Data> buffer_;
  std::vector<Data> chunks_;

 public:
  bool isFull = false;           ///< all announced bytes are there
  std::optional<CGRect> bounds;  ///< in pixels from the screen's top left; absent for all of it
  bool isCorrupt = false;        ///< more bytes came than were announced
};

}  // namespace tarnwick
