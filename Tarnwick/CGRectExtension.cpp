#include "Tarnwick/CGRectExtension.hpp"

#include <array>

#include "Tarnwick/Platform/Arithmetic.hpp"
#include "Tarnwick/Platform/Text.hpp"

namespace tarnwick {

std::optional<CGRect> makeCGRect(const std::optional<std::vector<std::string>>& params) {
  constexpr std::size_t fieldCount = 4;
  if (!params || params->size() != fieldCount) return std::nullopt;
  std::array<std::optional<CGFloat>, fieldCount> fields;
  for (std::size_t i = 0; i < fieldCount; ++i) {
    // Converts all fields before checking any: a fatal one stops the process in every case.
    if (const auto number = parseFloat((*params)[i])) {
      fields[i] = static_cast<CGFloat>(truncated(*number));
    }
  }
  const auto& [x, y, width, height] = fields;
  if (!x || !y || !width || !height) return std::nullopt;
  return CGRect{{*x, *y}, {*width, *height}};
}

}  // namespace tarnwick
