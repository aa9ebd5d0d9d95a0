#pragma once

#include <cstddef>
#include <cstdint>

#include "Tarnwick/Platform/Data.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// The pixels of a picture: four bytes each, in the order blue, green, red, alpha. Alpha is
/// straight: the colours are not multiplied by it. Rows run from top to bottom without padding.
struct Bitmap {
  std::int64_t width = 0;   ///< in pixels
  std::int64_t height = 0;  ///< in pixels
  Data pixels;              ///< width * height * bytesPerPixel bytes

  static constexpr std::int64_t bytesPerPixel = 4;  ///< blue, green, red and alpha

  /// The length of a row in bytes.
  [[nodiscard]] std::size_t rowBytes() const {
    return static_cast<std::size_t>(width * bytesPerPixel);
  }

  /// The first byte of row `y`, which must be below the height. Points into `pixels`.
  [[nodiscard]] const std::uint8_t* row(std::int64_t y) const {
    return pixels.data() + static_cast<std::size_t>(y) * rowBytes();
  }

  /// The same, for writing.
  [[nodiscard]] std::uint8_t* row(std::int64_t y) {
    return pixels.data() + static_cast<std::size_t>(y) * rowBytes();
  }
};

/// The maximum number of pixels of an image that is created or decoded.
inline constexpr std::int64_t pixelLimit = 128'000'000;

/// Whether a picture of these sides, in pixels, is neither empty nor over the pixel limit.
[[nodiscard]] constexpr bool isWithinPixelLimit(std::int64_t width, std::int64_t height) {
  return width > 0 && height > 0 && width <= pixelLimit / height;
}

}  // namespace tarnwick
