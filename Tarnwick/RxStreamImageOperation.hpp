#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "Tarnwick/BaseStreamOperation.hpp"
#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/NSImage.hpp"
#include "Tarnwick/RxImageFrame.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Merges and decodes a complete image, with its bounds. The result is valid once the operation is
/// finished, and the completion block may move it out. There is no result if the operation was
/// cancelled or ran out of memory.
class RxStreamImageOperation final : public BaseStreamOperation {
 public:
  /// Takes ownership of `frame`, which must not be null and must not be used elsewhere.
  explicit RxStreamImageOperation(std::shared_ptr<RxImageFrame> frame) : frame_(std::move(frame)) {}
  RxStreamImageOperation() = delete;

  /// Merges the chunks and stores the result, unless the operation was cancelled. Called on a
  /// thread of the operation queue.
  void main() override;

 private:
  const std::shared_ptr<RxImageFrame> frame_;

 public:
  std::shared_ptr<NSImage> image;  ///< null if bytes are missing or are not a complete image
  std::optional<CGRect> bounds;    ///< the frame's bounds; absent if bytes are missing
};

}  // namespace tarnwick
