#include "Tarnwick/Platform/Arithmetic.hpp"

#include <cmath>
#include <limits>
#include <string>
#include <string_view>

#include "Tarnwick/Platform/FatalError.hpp"

namespace tarnwick {
namespace {

template <typename Float>
std::int64_t truncatedFrom(Float value, std::string_view type) {
  // 2^63 and -2^63 are exact as floating-point numbers; the largest 64-bit integer is not.
  constexpr Float limit = 9223372036854775808.0;
  const std::string failure = std::string(type) + " value cannot be converted to Int because ";
  if (!std::isfinite(value)) fatalError(failure + "it is either infinite or NaN");
  if (value < -limit) fatalError(failure + "the result would be less than Int.min");
  if (value >= limit) fatalError(failure + "the result would be greater than Int.max");
  return static_cast<std::int64_t>(value);
}

}  // namespace

std::int64_t checkedSum(std::int64_t left, std::int64_t right) {
  using Limits = std::numeric_limits<std::int64_t>;
  const bool overflows = right > 0 ? left > Limits::max() - right : left < Limits::min() - right;
  if (overflows) fatalError("Arithmetic overflow");
  return left + right;
}

std::int64_t truncated(float value) { return truncatedFrom(value, "Float"); }

std::int64_t truncated(double value) { return truncatedFrom(value, "Double"); }

}  // namespace tarnwick
