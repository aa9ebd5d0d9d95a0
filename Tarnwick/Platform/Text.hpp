#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwick {

/// The text and number rules of the wire and the log lines, independent of the process's locale.
/// All functions are pure. Texts are UTF-8. Returned views point into the argument.

/// Whether the bytes are well-formed UTF-8 (Unicode Standard, table 3-7: no overlong forms, no
/// surrogates, nothing above U+10FFFF). Stops at the first byte that is not.
[[nodiscard]] bool isValidUTF8(std::string_view bytes) noexcept;

/// The first `maximum` fields of `text`. Each character of `separators` is a separator. Empty
/// fields are left out. The time is proportional to the length of the text that the fields span.
[[nodiscard]] std::vector<std::string_view> split(std::string_view text,
                                                  std::string_view separators,
                                                  std::size_t maximum = std::string_view::npos);

/// The first field that split() returns, found without splitting the rest. Empty if `text`
/// has no field.
[[nodiscard]] std::string_view firstField(std::string_view text, std::string_view separators);

/// Whether lower-cased `text` equals `word`, which is lower-case ASCII. Converts only ASCII
/// letters: no other character lower-cases to ASCII except the Kelvin sign, and no command has a k.
[[nodiscard]] bool equalsIgnoringCase(std::string_view text, std::string_view word) noexcept;

/// Parses a decimal integer: an optional sign and digits, nothing else. Absent if `text` is not an
/// integer or does not fit 64 bits.
[[nodiscard]] std::optional<std::int64_t> parseInteger(std::string_view text) noexcept;

/// Parses a decimal number with optional sign, fraction and exponent, or `inf`, `infinity` or `nan`
/// in any case. Rounds it once to 32 bits: a number too large becomes infinite, one too small
/// becomes zero. Absent if `text` is not a number.
[[nodiscard]] std::optional<float> parseFloat(std::string_view text) noexcept;

/// The shortest plain decimal that reads back as the same number, always with a fraction, never
/// with an exponent: `0.0`, `0.9765625`. `value` must be finite.
[[nodiscard]] std::string shortestDecimal(float value);
[[nodiscard]] std::string shortestDecimal(double value);

}  // namespace tarnwick
