// Reads each line as a text. The results must equal those of the C library and of simple models.
#include <iconv.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <regex>
#include <span>
#include <sstream>

#include "Tarnwick/Platform/Text.hpp"

using namespace tarnwick;

void expect(bool holds) {
  if (!holds) std::abort();
}

bool convertsFromUTF8(std::string text) {
  static iconv_t converter = iconv_open("UTF-32LE", "UTF-8");
  std::string room(text.size() * 4, '\0');
  iconv(converter, nullptr, nullptr, nullptr, nullptr);  // resets the converter
  char *from = text.data(), *to = room.data();
  std::size_t left = text.size(), space = room.size();
  return iconv(converter, &from, &left, &to, &space) != static_cast<std::size_t>(-1);
}

/// Checks the characters first, because regular expressions are slow.
bool isNumber(const std::string& text, const std::regex& form) {
  constexpr std::string_view letters = "+-.0123456789aefintyAEFINTY";
  return text.find_first_not_of(letters) == std::string::npos && std::regex_match(text, form);
}

std::optional<std::int64_t> integer(const std::string& text) {
  static const std::regex form("[+-]?[0-9]+");
  if (!isNumber(text, form)) return std::nullopt;
  errno = 0;
  const std::int64_t number = std::strtoll(text.c_str(), nullptr, 10);
  return errno == ERANGE ? std::nullopt : std::optional(number);
}

std::optional<float> real(const std::string& text) {
  static const std::regex form(
      R"([+-]?(([0-9]+\.?[0-9]*|\.[0-9]+)(e[+-]?[0-9]+)?|inf(inity)?|nan))", std::regex::icase);
  if (!isNumber(text, form)) return std::nullopt;
  return std::strtof(text.c_str(), nullptr);
}

std::vector<std::string> fields(const std::string& text) {
  std::vector<std::string> found{""};
  for (const char c : text) {
    if (c == '|' || c == '~') {
      found.emplace_back();
    } else {
      found.back() += c;
    }
  }
  std::erase(found, "");
  return found;
}

void check(const std::string& text) {
  for (std::size_t before = 0; before < 9; ++before) {
    expect(isValidUTF8(std::string(before, 'a') + text) == convertsFromUTF8(text));
  }
  const std::vector<std::string> parts = fields(text);
  expect(std::ranges::equal(split(text, "|~"), parts));
  const std::span firstTwo(parts.data(), std::min<std::size_t>(2, parts.size()));
  expect(std::ranges::equal(split(text, "|~", 2), firstTwo));
  expect(firstField(text, "|~") == (parts.empty() ? "" : parts.front()));
  expect(parseInteger(text) == integer(text));
  const auto number = parseFloat(text), reference = real(text);
  expect(number.has_value() == reference.has_value());
  if (!number || std::isnan(*number)) return;
  expect(std::bit_cast<std::uint32_t>(*number) == std::bit_cast<std::uint32_t>(*reference));
  if (std::isinf(*number)) return;
  const std::string decimal = shortestDecimal(*number);
  expect(decimal.find('.') < decimal.size() - 1 && decimal.find('e') == std::string::npos);
  expect(parseFloat(decimal) == number);
  const double wide = std::strtod(text.c_str(), nullptr);
  expect(std::isinf(wide) || std::strtod(shortestDecimal(wide).c_str(), nullptr) == wide);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size) {
  // Limits the length: regular expressions use stack in proportion to it.
  const std::string text(reinterpret_cast<const char*>(input), std::min<std::size_t>(size, 2000));
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) check(line);
  return 0;
}
