#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "Tarnwick/BaseStreamOperation.hpp"
#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/RxAudioFrame.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Turns a complete buffer into the bytes of a recording with its number. The result is there when
/// the operation is finished, and belongs to the completion block. A cancelled operation has no
/// result, and neither has one that runs out of memory.
class RxStreamAudioOperation final : public BaseStreamOperation {
 public:
  /// Takes over the buffer, which must not be null and which nobody else may use from now on.
  explicit RxStreamAudioOperation(std::shared_ptr<RxAudioFrame> frame) : frame_(std::move(frame)) {}
  RxStreamAudioOperation() = delete;

  /// Merges the buffer and stores the result, unless the operation was cancelled. Called on the
  /// queue's thread.
  void main() override;

 private:
  const std::shared_ptr<RxAudioFrame> frame_;

 public:
  std::optional<Data> data;   ///< absent when bytes are missing, or the number is 0
  std::int64_t recorded = 0;  ///< set in any case
};

}  // namespace tarnwick
