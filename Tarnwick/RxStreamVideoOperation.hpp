#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "Tarnwick/BaseStreamOperation.hpp"
#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/RxVideoFrame.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Turns a complete buffer into the bytes of a video frame with its number. The result is there
/// when the operation is finished, and belongs to the completion block. A cancelled operation has
/// no result, and neither has one that runs out of memory.
class RxStreamVideoOperation final : public BaseStreamOperation {
 public:
  /// Takes over the buffer, which must not be null and which nobody else may use from now on.
  explicit RxStreamVideoOperation(std::shared_ptr<RxVideoFrame> frame) : frame_(std::move(frame)) {}
  RxStreamVideoOperation() = delete;

  /// Merges the buffer and stores the result, unless the operation was cancelled. Called on the
  /// queue's thread.
  void main() override;

 private:
  const std::shared_ptr<RxVideoFrame> frame_;

 public:
  std::optional<Data> data;  ///< absent when bytes are missing
  std::int64_t frameID = 0;  ///< set in any case
};

}  // namespace tarnwick
