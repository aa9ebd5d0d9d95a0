#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Tarnwick/Platform/Geometry.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Returns the rectangle with x, y, width and height from four decimal texts, read as 32-bit floats
/// and truncated to integers: 12.9 becomes 12 and 16777217 becomes 16777216. Absent without four
/// texts, or if any is not a number. Any of four texts that is infinite, "nan" or beyond 64 bits is
/// a fatal error, even if another is not a number. Any thread may call it.
[[nodiscard]] std::optional<CGRect> makeCGRect(
    const std::optional<std::vector<std::string>>& params);

}  // namespace tarnwick
