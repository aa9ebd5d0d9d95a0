#pragma once

#include <memory>

#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/NSImage.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// Returns a new image with the region `rect` of `image`, of exactly the rectangle's size. `rect`
/// is in logical units from the top left of `image`. The area outside `image` is transparent. The
/// result has no bitmap if NSImage::create() makes none for the size, or if memory is short for
/// scaling. Throws what NSImage::create() throws.
[[nodiscard]] std::shared_ptr<NSImage> crop(const NSImage& image, const CGRect& rect);

/// Returns a new image of this size with all of `image` scaled to it, each side independently.
/// Keeps the pixels of `image`, but sets its logical size to `size` and its resizing mode to
/// `tile`: no other thread may use it meanwhile. The result has no bitmap if NSImage::create()
/// makes none for the size, or if scaling lacks memory. Throws what NSImage::create() throws.
[[nodiscard]] std::shared_ptr<NSImage> resize(NSImage& image, const CGSize& size);

}  // namespace tarnwick
