#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnwick {

/// Ends the process: writes `Fatal error: ` and `text` as one line to standard error, writes the
/// waiting log lines, flushes standard output and aborts. A blocked standard output delays this by
/// a second. Only for conditions that are documented to end the process.
[[noreturn]] void fatalError(std::string_view text) noexcept;

/// The value of an optional that must have one; a fatal error if it is empty.
template <typename Value>
[[nodiscard]] Value unwrapped(std::optional<Value> value) {
  if (!value) fatalError("Unexpectedly found nil while unwrapping an Optional value");
  return std::move(*value);
}

/// The element at `index`; a fatal error if `index` is out of range.
template <typename Value>
[[nodiscard]] const Value& element(const std::vector<Value>& values, std::size_t index) {
  if (index >= values.size()) fatalError("Index out of range");
  return values[index];
}

}  // namespace tarnwick
