#pragma once

#include <cstdint>

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Geometry.hpp"

namespace tarnwick {

/// The number of pixels for a length in pixels: rounded up, but 1e-6 counts as a rounding error and
/// needs no pixel. 0 for a length that is negative or not a number.
[[nodiscard]] std::int64_t pixelCount(CGFloat length);

/// Replaces the region `into` of `target` by the region `from` of `source`, alpha included; both in
/// pixels from the top left, fractions allowed. Every pixel that the drawing covers, fully or in
/// part, is replaced. Regions of the same size are copied pixel for pixel, others scaled. Parts
/// outside either bitmap are left out. Throws std::bad_alloc if there is no memory for scaling;
/// `target` is then unchanged.
void drawPixels(const Bitmap& source, const CGRect& from, Bitmap& target, const CGRect& into);

}  // namespace tarnwick
