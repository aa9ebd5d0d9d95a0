#include "Tarnwick/RxResponse.hpp"

#include "Tarnwick/Platform/FatalError.hpp"
#include "Tarnwick/Platform/Text.hpp"

namespace tarnwick {
namespace {

constexpr std::size_t mostFields = 7;  // in a `size` message with a rectangle

}  // namespace

std::optional<RxResponse> rxResponseFromRawValue(std::uint8_t rawValue) {
  if (rawValue > static_cast<std::uint8_t>(RxResponse::Unknown)) return std::nullopt;
  return static_cast<RxResponse>(rawValue);
}

std::string_view commandWord(std::string_view text) {
  const std::string_view word = firstField(text, fieldSeparators);
  if (word.empty()) fatalError("Index out of range");
  return word;
}

std::vector<std::string> messageFields(std::string_view text) {
  const std::vector<std::string_view> fields = split(text, fieldSeparators);
  return {fields.begin(), fields.end()};
}

std::vector<std::string> commandFields(std::string_view text) {
  const std::vector<std::string_view> fields = split(text, fieldSeparators, mostFields + 1);
  return {fields.begin(), fields.end()};
}

}  // namespace tarnwick
