#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/NSImage.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// One image to send. A value that never changes; its image is shared, and only read.
struct ImagePacket {
  /// The fields in their order.
  ImagePacket(std::uint64_t number, CGRect region, std::shared_ptr<NSImage> picture,
              bool isFullScreen)
      : frame(number), rect(region), image(std::move(picture)), fullScreen(isFullScreen) {}

  const std::uint64_t frame;  ///< the caller's number for it, which the log shows and no peer sees
  const CGRect rect;          ///< what it shows of the screen, in pixels from the top left
  const std::shared_ptr<NSImage> image;  ///< the picture, which nobody may change any more
  const bool fullScreen;                 ///< it shows the whole screen: `rect` is not sent
};

}  // namespace tarnwick
