#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwick {

/// The text and number rules of the wire and of the log lines, independent of the process's locale.
/// All are pure functions; a text is UTF-8, and what they take apart they only look at.

/// Whether the bytes are well-formed UTF-8 (Unicode Standard, table 3-7: no overlong forms, no
/// surrogates, nothing above U+10FFFF). Ends at the first byte that is not.
[[nodiscard]] bool isValidUTF8(std::string_view bytes) noexcept;

/// The first `maximum` fields between separators, each character of `separators` on its own. Empty
/// fields are left out. Takes time in proportion to the text that the fields span.
[[nodiscard]] std::vector<std::string_view> split(std::string_view text,
                                                  std::string_view separators,
                                                  std::size_t maximum = std::string_view::npos);

/// The first of the fields that split() gives, found without splitting the rest; empty when there
/// is none.
[[nodiscard]] std::string_view firstField(std::string_view text, std::string_view separators);

/// Whether `text` lower-cased is `word`, which is lower-case ASCII. Beyond ASCII only the Kelvin
/// sign lower-cases to a letter of ASCII, and no word of ours has a k.
[[nodiscard]] bool equalsIgnoringCase(std::string_view text, std::string_view word) noexcept;

/// A decimal integer: an optional sign and digits, nothing else. Absent when `text` is none, or
/// does not fit 64 bits.
[[nodiscard]] std::optional<std::int64_t> parseInteger(std::string_view text) noexcept;

/// A decimal number with optional sign, fraction and exponent, or `inf`, `infinity` or `nan` in any
/// case, rounded once to 32 bits: too large is infinite, too small is zero. Absent when `text` is
/// none.
[[nodiscard]] std::optional<float> parseFloat(std::string_view text) noexcept;

/// The shortest plain decimal that reads back as the same number, always with a fraction, never
/// with an exponent: `0.0`, `0.9765625`. For finite numbers.
[[nodiscard]] std::string shortestDecimal(float value);
[[nodiscard]] std::string shortestDecimal(double value);

}  // namespace tarnwick
