#pragma once

#include <cstdint>

#include "Tarnwick/Platform/Bitmap.hpp"

namespace tarnwick {

/// Averages each group of `across` by `down` pixels of `source` to one, on premultiplied colours.
/// The last pixel of a row or column is the average of the remaining pixels.
[[nodiscard]] Bitmap averaged(const Bitmap& source, std::int64_t across, std::int64_t down);

}  // namespace tarnwick
