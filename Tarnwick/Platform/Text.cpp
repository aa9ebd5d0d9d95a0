#include "Tarnwick/Platform/Text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>

namespace tarnwick {
namespace {

/// Advances `position` past ASCII characters, in whole blocks of `words` times eight bytes.
template <std::size_t words>
void skipASCII(std::string_view bytes, std::size_t& position) noexcept {
  constexpr std::uint64_t highBits = 0x8080808080808080;
  std::array<std::uint64_t, words> block;
  while (bytes.size() - position >= sizeof block) {
    std::memcpy(&block, bytes.data() + position, sizeof block);
    std::uint64_t all = 0;
    for (const std::uint64_t word : block) all |= word;
    if ((all & highBits) != 0) return;
    position += sizeof block;
  }
}

/// The length of the character at the start of `bytes`, which is not empty; 0 if it is malformed.
std::size_t characterLength(std::string_view bytes) noexcept {
  const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(bytes[index]); };
  const auto isWithin = [&](std::size_t index, unsigned low, unsigned high) {
    return index < bytes.size() && byte(index) >= low && byte(index) <= high;
  };
  const auto continues = [&](std::size_t index) { return isWithin(index, 0x80, 0xBF); };
  const unsigned lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return continues(1) ? 2 : 0;
  if (lead < 0xF0) {
    const bool second = isWithin(1, lead == 0xE0 ? 0xA0 : 0x80, lead == 0xED ? 0x9F : 0xBF);
    return second && continues(2) ? 3 : 0;
  }
  if (lead < 0xF5) {
    const bool second = isWithin(1, lead == 0xF0 ? 0x90 : 0x80, lead == 0xF4 ? 0x8F : 0xBF);
    return second && continues(2) && continues(3) ? 4 : 0;
  }
  return 0;
}

constexpr std::size_t firstWindow = 256;  // longer than nearly every field of a message

/// The position of the first separator in `text`; the length of `text` if it has no separator.
std::size_t findSeparator(std::string_view text, std::string_view separators) noexcept {
  // One search per separator, each within the range that the previous search left, is several times
  // faster than comparing every character with all separators. The window bounds the search for a
  // separator that does not occur. It grows with the field, so the time is proportional to it.
  std::size_t end = 0;
  for (std::size_t window = firstWindow; end < text.size(); window *= 2) {
    const std::string_view part = text.substr(end, window);
    std::size_t length = part.size();
    for (const char separator : separators) {
      length = std::min(length, part.substr(0, length).find(separator));
    }
    end += length;
    if (length < part.size()) break;
  }
  return end;
}

/// Removes the next field from the front of `text` and returns it. Empty if no field remains.
std::string_view takeField(std::string_view& text, std::string_view separators) noexcept {
  text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
  const std::string_view field = text.substr(0, findSeparator(text, separators));
  text.remove_prefix(field.size());
  return field;
}

/// Whether a decimal outside the range of 32-bit floats is too small rather than too large. The
/// power of ten of its first nonzero digit decides.
bool isTooSmall(std::string_view decimal) noexcept {
  const std::size_t mark = std::min(decimal.find_first_of("eE"), decimal.size());
  const std::string_view mantissa = decimal.substr(0, mark);
  const auto point = static_cast<std::int64_t>(std::min(mantissa.find('.'), mantissa.size()));
  const auto digit = static_cast<std::int64_t>(mantissa.find_first_of("123456789"));
  if (mark == decimal.size()) return point < digit;
  const std::string_view exponent = decimal.substr(mark + 1);
  const std::optional<std::int64_t> power = parseInteger(exponent);
  return power ? *power < digit - point : exponent.front() == '-';
}

template <typename Float>
std::string shortestDecimalOf(Float value) {
  // A sign, all digits before the point, the point, and the digits after it in the smallest number.
  std::array<char, std::numeric_limits<Float>::max_exponent10 * 2 + 32> text;
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed).ptr;
  std::string decimal(text.data(), end);
  if (decimal.find('.') == std::string::npos) decimal += ".0";
  return decimal;
}

/// `text` without one leading plus sign, which std::from_chars does not accept.
std::string_view withoutPlus(std::string_view text) noexcept {
  const bool hasPlus = text.size() > 1 && text[0] == '+' && text[1] != '-';
  return hasPlus ? text.substr(1) : text;
}

}  // namespace

bool isValidUTF8(std::string_view bytes) noexcept {
  for (std::size_t position = 0;;) {
    skipASCII<8>(bytes, position);  // as many words as the processor handles at once
    skipASCII<1>(bytes, position);
    if (position == bytes.size()) return true;
    const std::size_t length = characterLength(bytes.substr(position));
    if (length == 0) return false;
    position += length;
  }
}

std::vector<std::string_view> split(std::string_view text, std::string_view separators,
                                    std::size_t maximum) {
  std::vector<std::string_view> fields;
  while (fields.size() < maximum) {
    const std::string_view field = takeField(text, separators);
    if (field.empty()) break;
    fields.push_back(field);
  }
  return fields;
}

std::string_view firstField(std::string_view text, std::string_view separators) {
  return takeField(text, separators);
}

bool equalsIgnoringCase(std::string_view text, std::string_view word) noexcept {
  const auto lowerCased = [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  };
  return std::equal(text.begin(), text.end(), word.begin(), word.end(),
                    [&](char left, char right) { return lowerCased(left) == right; });
}

std::optional<std::int64_t> parseInteger(std::string_view text) noexcept {
  text = withoutPlus(text);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<float> parseFloat(std::string_view text) noexcept {
  text = withoutPlus(text);
  float number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  // `nan(…)` is not a number here, although std::from_chars accepts it.
  const bool isWhole = end == text.data() + text.size() && text.find('(') == std::string_view::npos;
  if (error == std::errc::invalid_argument || !isWhole) return std::nullopt;
  if (error == std::errc::result_out_of_range) {
    number = isTooSmall(text.substr(text.front() == '-')) ? 0.0F
                                                          : std::numeric_limits<float>::infinity();
    if (text.front() == '-') number = -number;
  }
  return number;
}

std::string shortestDecimal(float value) { return shortestDecimalOf(value); }

std::string shortestDecimal(double value) { return shortestDecimalOf(value); }

}  // namespace tarnwick
