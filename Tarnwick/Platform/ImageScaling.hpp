#pragma once

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Geometry.hpp"

namespace tarnwick {

/// Scales `region` of `source` to `width` by `height` pixels: Lanczos with three lobes, on
/// premultiplied colours. `region` is in pixels from the top left, may have fractions and must be
/// within `source`. If a side of `source` is over 65,535 pixels and becomes at least 16 times
/// shorter, its pixels are averaged in groups first. Throws std::bad_alloc if memory is short.
[[nodiscard]] Bitmap scaled(const Bitmap& source, const CGRect& region, std::int64_t width,
                            std::int64_t height);

}  // namespace tarnwick
