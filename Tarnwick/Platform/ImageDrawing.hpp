#pragma once

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Geometry.hpp"

namespace tarnwick {

/// Replaces the region `into` of `target` by the region `from` of `source`, alpha included; both in
/// pixels from the top left, fractions allowed. Regions of the same size are copied pixel for
/// pixel, others scaled. Parts outside either bitmap are left out.
void drawPixels(const Bitmap& source, const CGRect& from, Bitmap& target, const CGRect& into);

}  // namespace tarnwick
