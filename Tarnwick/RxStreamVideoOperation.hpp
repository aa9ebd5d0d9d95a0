#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "Tarnwick/BaseStreamOperation.hpp"
#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/RxVideoFrame.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Merges a complete video frame into its bytes, with its number. The result is valid once the
/// operation is finished, and the completion block may move it out. There is no result if the
/// operation was cancelled or ran out of memory.
class RxStreamVideoOperation final : public BaseStreamOperation {
 public:
  /// Takes ownership of `frame`, which must not be null and must not be used elsewhere.
  explicit RxStreamVideoOperation(std::shared_ptr<RxVideoFrame> frame) : frame_(std::move(frame)) {}
  RxStreamVideoOperation() = delete;

  /// Merges the chunks and stores the result, unless the operation was cancelled. Called on a
  /// thread of the operation queue.
  void main() override;

 private:
  const std::shared_ptr<RxVideoFrame> frame_;

 public:
  std::optional<Data> data;  ///< absent if bytes are missing
  std::int64_t frameID = 0;  ///< set even without `data`, unless cancelled
};

}  // namespace tarnwick
