#pragma once

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Geometry.hpp"

namespace tarnwick {

/// `region` of `source`, in pixels from its top left and within it, fractions allowed, scaled to a
/// bitmap of `width` by `height` pixels: Lanczos with three lobes, on colours multiplied by alpha.
/// An empty bitmap when the result is over the pixel limit, or a side of either over 65,535 pixels.
[[nodiscard]] Bitmap scaled(const Bitmap& source, const CGRect& region, std::int64_t width,
                            std::int64_t height);

}  // namespace tarnwick
