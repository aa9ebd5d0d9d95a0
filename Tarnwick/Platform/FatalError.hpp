#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnwick {

/// Stops the process: writes `Fatal error: ` and `text` as one line on standard error, writes the
/// log lines that wait, flushes standard output and aborts. A standard output that nobody reads
/// delays this by a second. For the conditions that are documented to end it, and no others.
[[noreturn]] void fatalError(std::string_view text) noexcept;

/// The value of an optional that must have one; a fatal error when it has none.
template <typename Value>
[[nodiscard]] Value unwrapped(std::optional<Value> value) {
  if (!value) fatalError("Unexpectedly found nil while unwrapping an Optional value");
  return std::move(*value);
}

/// The element at `index`; a fatal error when there are not so many.
template <typename Value>
[[nodiscard]] const Value& element(const std::vector<Value>& values, std::size_t index) {
  if (index >= values.size()) fatalError("Index out of range");
  return values[index];
}

}  // namespace tarnwick
