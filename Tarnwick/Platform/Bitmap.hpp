#pragma once

#include <cstddef>
#include <cstdint>

#include "Tarnwick/Platform/Data.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// A picture's pixels: four bytes each in the order blue, green, red, alpha, straight (the colours
/// are not multiplied by alpha); rows from top to bottom without padding.
struct Bitmap {
  std::int64_t width = 0;   ///< in pixels
  std::int64_t height = 0;  ///< in pixels
  Data pixels;              ///< width * height * bytesPerPixel bytes

  static constexpr std::int64_t bytesPerPixel = 4;  ///< one each of the four

  /// The bytes of a row.
  [[nodiscard]] std::size_t rowBytes() const {
    return static_cast<std::size_t>(width * bytesPerPixel);
  }

  /// The first byte of row `y`, which must be below the height; valid as long as the pixels are.
  [[nodiscard]] const std::uint8_t* row(std::int64_t y) const {
    return pixels.data() + static_cast<std::size_t>(y) * rowBytes();
  }

  /// The same, to be written.
  [[nodiscard]] std::uint8_t* row(std::int64_t y) {
    return pixels.data() + static_cast<std::size_t>(y) * rowBytes();
  }
};

/// The most pixels that an image is created with or decoded to.
inline constexpr std::int64_t pixelLimit = 128'000'000;

/// Whether a picture of these sides, in pixels, is neither empty nor over the pixel limit.
[[nodiscard]] constexpr bool isWithinPixelLimit(std::int64_t width, std::int64_t height) {
  return width > 0 && height > 0 && width <= pixelLimit / height;
}

}  // namespace tarnwick
