#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/NSImage.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// One image to send. Immutable; the image is shared and only read.
struct ImagePacket {
  /// Initialises the fields, in their order.
  ImagePacket(std::uint64_t number, CGRect region, std::shared_ptr<NSImage> picture,
              bool isFullScreen)
      : frame(number), rect(region), image(std::move(picture)), fullScreen(isFullScreen) {}

  const std::uint64_t frame;  ///< the caller's number; logged, not sent
  const CGRect rect;          ///< the screen area that it shows, in pixels from the top left
  const std::shared_ptr<NSImage> image;  ///< the picture; must not change any more
  const bool fullScreen;                 ///< it shows the whole screen: `rect` is not sent
};

}  // namespace tarnwick
