#pragma once

#include <cstdint>

#include "Tarnwick/Platform/Bitmap.hpp"

namespace tarnwick {

/// `source` with every `across` by `down` pixels averaged to one, on colours multiplied by alpha.
/// The last pixel of a row or column is the average of the pixels that are left.
[[nodiscard]] Bitmap averaged(const Bitmap& source, std::int64_t across, std::int64_t down);

}  // namespace tarnwick
