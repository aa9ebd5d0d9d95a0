#pragma once

#include <cstdint>

namespace tarnwick {

/// The sum of two 64-bit integers; a fatal error, "Arithmetic overflow", if it does not fit.
[[nodiscard]] std::int64_t checkedSum(std::int64_t left, std::int64_t right);

/// `value`, truncated toward zero, as a 64-bit integer. A value that is not finite or does not fit
/// is a fatal error. Its text names the type of `value` and the reason.
[[nodiscard]] std::int64_t truncated(float value);
[[nodiscard]] std::int64_t truncated(double value);

}  // namespace tarnwick
