#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "Tarnwick/BaseStreamOperation.hpp"
#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/RxAudioFrame.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Merges a complete audio recording into its bytes, with its number. The result is valid once the
/// operation is finished, and the completion block may move it out. There is no result if the
/// operation was cancelled or ran out of memory.
class RxStreamAudioOperation final : public BaseStreamOperation {
 public:
  /// Takes ownership of `frame`, which must not be null and must not be used elsewhere.
  explicit RxStreamAudioOperation(std::shared_ptr<RxAudioFrame> frame) : frame_(std::move(frame)) {}
  RxStreamAudioOperation() = delete;

  /// Merges the chunks and stores the result, unless the operation was cancelled. Called on a
  /// thread of the operation queue.
  void main() override;

 private:
  const std::shared_ptr<RxAudioFrame> frame_;

 public:
  std::optional<Data> data;   ///< absent if bytes are missing, or the number is 0
  std::int64_t recorded = 0;  ///< set even without `data`, unless cancelled
};

}  // namespace tarnwick
