#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <algorithm>

namespace screenshare {

/// A rectangle of whole pixels from the top left.
struct PixelRect {
  int x = 0, y = 0, width = 0, height = 0;

  bool operator==(const PixelRect&) const = default;

  [[nodiscard]] bool isEmpty() const { return width <= 0 || height <= 0; }

  [[nodiscard]] PixelRect intersection(const PixelRect& other) const {
    const int left = std::max(x, other.x), top = std::max(y, other.y);
    return {left, top, std::min(x + width, other.x + other.width) - left,
            std::min(y + height, other.y + other.height) - top};
  }

  [[nodiscard]] tarnwick::CGRect asCGRect() const {
    return {{static_cast<double>(x), static_cast<double>(y)},
            {static_cast<double>(width), static_cast<double>(height)}};
  }
};

}  // namespace screenshare
