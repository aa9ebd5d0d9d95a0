#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Tarnwick/Platform/Geometry.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// The rectangle whose x, y, width and height are these four texts: decimal numbers of 32 bits,
/// truncated to integers, so that 12.9 is 12 and 16777217 is 16777216. Absent when there are not
/// four, or one is no number. One of four that is infinite, "nan" or beyond 64 bits is a fatal
/// error, also beside one that is no number. Any thread may call it.
[[nodiscard]] std::optional<CGRect> makeCGRect(
    const std::optional<std::vector<std::string>>& params);

}  // namespace tarnwick
