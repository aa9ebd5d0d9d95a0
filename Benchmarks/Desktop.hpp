#pragma once

#include "Tarnwick/Platform/Bitmap.hpp"

namespace tarnwick::benchmarks {

/// Draws an artificial desktop: flat areas, lines that resemble text, and pictures.
inline Bitmap desktop(std::int64_t width, std::int64_t height) {
  Bitmap bitmap{width, height, Data(static_cast<std::size_t>(width * height * 4), 0xFF)};
  std::uint32_t noise = 1;
  for (std::int64_t y = 0; y < height; ++y) {
    for (std::int64_t x = 0; x < width; ++x) {
      std::uint8_t* const pixel = bitmap.row(y) + x * 4;
      noise = noise * 1664525 + 1013904223;
      const bool isText = (x / 400) % 2 == 0 && y % 18 < 10 && (noise >> 29) < 2;
      const bool isPicture = (x / 400) % 4 == 1 && (y / 300) % 2 == 0;
      for (int i = 0; i < 3; ++i) {
        const auto level =
            static_cast<std::uint8_t>(isPicture ? (x * (i + 1) + y) / 8 : 240 - 10 * i);
        pixel[i] = isText ? 20 : level;
      }
    }
  }
  return bitmap;
}

}  // namespace tarnwick::benchmarks
