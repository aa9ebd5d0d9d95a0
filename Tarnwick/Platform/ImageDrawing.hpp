#pragma once

#include <cstdint>

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Geometry.hpp"

namespace tarnwick {

/// Rounds a length in pixels up. A fraction of at most 1e-6 is a rounding error and adds no pixel.
/// Returns 0 for a length that is negative or not a number.
[[nodiscard]] std::int64_t pixelCount(CGFloat length);

/// Replaces the region `into` of `target` by the region `from` of `source`, alpha included. Both
/// are in pixels from the top left and may have fractions. Every pixel that the drawing covers,
/// fully or in part, is replaced. Regions of the same size are copied pixel for pixel; others are
/// scaled. Parts outside either bitmap are left out. Throws std::bad_alloc if memory is short for
/// scaling; `target` is then unchanged.
void drawPixels(const Bitmap& source, const CGRect& from, Bitmap& target, const CGRect& into);

}  // namespace tarnwick
