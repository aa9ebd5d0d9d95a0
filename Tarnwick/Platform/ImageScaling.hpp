#pragma once

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Geometry.hpp"

namespace tarnwick {

/// `region` of `source`, in pixels from its top left and within it, fractions allowed, scaled to a
/// bitmap of `width` by `height` pixels: Lanczos with three lobes, on colours multiplied by alpha.
/// If a side over 65,535 pixels becomes much shorter, whole numbers of pixels are averaged first.
/// Throws std::bad_alloc if memory is short.
[[nodiscard]] Bitmap scaled(const Bitmap& source, const CGRect& region, std::int64_t width,
                            std::int64_t height);

}  // namespace tarnwick
