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

/// Turns a complete buffer into an image with its bounds. The result is there when the operation is
/// finished, and belongs to the completion block. A cancelled operation has no result, and neither
/// has one that runs out of memory.
class RxStreamImageOperation final : public BaseStreamOperation {
 public:
  /// Takes over the buffer, which must not be null and which nobody else may use from now on.
  explicit RxStreamImageOperation(std::shared_ptr<RxImageFrame> frame) : frame_(std::move(frame)) {}
  RxStreamImageOperation() = delete;

  /// Merges the buffer and stores the result, unless the operation was cancelled. Called on the
  /// queue's thread.
  void main() override;

 private:
  const std::shared_ptr<RxImageFrame> frame_;

 public:
  std::shared_ptr<NSImage> image;  ///< null when bytes are missing, or are no complete image
  std::optional<CGRect> bounds;    ///< those of the buffer, whenever no bytes are missing
};

}  // namespace tarnwick
