#pragma once

#include <memory>

#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/NSImage.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// A new image of exactly the rectangle's size that holds this region of `image`, which is given in
/// its logical units from the top left. What lies outside the image stays transparent. The
/// result has no bitmap if NSImage::create() gives none for the size, or if memory is short for
/// scaling. Throws what NSImage::create() throws.
[[nodiscard]] std::shared_ptr<NSImage> crop(const NSImage& image, const CGRect& rect);

/// A new image of exactly this size with all of `image` scaled to it, each side on its own. `image`
/// itself keeps its pixels, but has this logical size, and the resizing mode `tile`, from now on;
/// so no other thread may use it meanwhile. The result has no bitmap if NSImage::create() gives
/// none for the size, or if memory is short for scaling. Throws what NSImage::create() throws.
[[nodiscard]] std::shared_ptr<NSImage> resize(NSImage& image, const CGSize& size);

}  // namespace tarnwick
