#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "Tarnwick/Platform/Bitmap.hpp"

namespace tarnwick::test {

/// An opaque picture whose blue rises across, green down and red both ways; it looks the same at
/// every size, so that scaling one must give another.
inline Bitmap gradient(std::int64_t width, std::int64_t height) {
  const auto level = [](std::int64_t position, std::int64_t side) {
    return (static_cast<double>(position) + 0.5) / static_cast<double>(side) * 255;
  };
  Bitmap bitmap{width, height, {}};
  for (std::int64_t y = 0; y < height; ++y) {
    for (std::int64_t x = 0; x < width; ++x) {
      const double across = level(x, width), down = level(y, height);
      for (const double value : {across, down, (across + down) / 2, 255.0}) {
        bitmap.pixels.push_back(static_cast<std::uint8_t>(std::lround(value)));
      }
    }
  }
  return bitmap;
}

/// The gradient with noise and dark lines, and red, green, blue and white in the corners (top left
/// and right, bottom left and right), so that a turned axis or a swapped channel shows.
inline Bitmap picture(std::int64_t width, std::int64_t height) {
  constexpr std::uint8_t corners[][3]{{0, 0, 255}, {0, 255, 0}, {255, 0, 0}, {255, 255, 255}};
  Bitmap bitmap = gradient(width, height);
  std::uint32_t noise = 1;
  for (std::int64_t y = 0; y < height; ++y) {
    for (std::int64_t x = 0; x < width; ++x) {
      std::uint8_t* const pixel = bitmap.row(y) + x * Bitmap::bytesPerPixel;
      const bool isAtSide = std::min(x, width - 1 - x) <= width / 8;
      const bool isAtEnd = std::min(y, height - 1 - y) <= height / 8;
      const std::size_t corner = (2 * y < height ? 0 : 2) + (2 * x < width ? 0 : 1);
      for (std::size_t i = 0; i < 3; ++i) {
        noise = noise * 1664525 + 1013904223;
        if (x % 20 == 19 || y % 20 == 5) pixel[i] /= 4;
        pixel[i] = isAtSide && isAtEnd ? corners[corner][i]
                                       : static_cast<std::uint8_t>(pixel[i] ^ (noise >> 30));
      }
    }
  }
  return bitmap;
}

inline bool equal(const Bitmap& left, const Bitmap& right) {
  return left.width == right.width && left.height == right.height && left.pixels == right.pixels;
}

inline Bitmap plain(std::int64_t width, std::int64_t height, std::uint8_t value) {
  return {width, height, Data(static_cast<std::size_t>(width * height * 4), value)};
}

/// The picture, with every alpha there is.
inline Bitmap translucent(std::int64_t width, std::int64_t height) {
  Bitmap bitmap = picture(width, height);
  for (std::size_t i = 3; i < bitmap.pixels.size(); i += 4) {
    bitmap.pixels[i] = static_cast<std::uint8_t>(i / 4);
  }
  return bitmap;
}

/// How alike the colours of two pictures of the same sides are, in decibels; infinite when equal,
/// below zero when the sides differ.
inline double psnr(const Bitmap& left, const Bitmap& right) {
  if (left.width != right.width || left.height != right.height) return -1;
  double sum = 0;
  for (std::size_t i = 0; i < left.pixels.size(); ++i) {
    const double difference = i % 4 == 3 ? 0 : left.pixels[i] - right.pixels[i];
    sum += difference * difference;
  }
  const auto samples = static_cast<double>(left.width * left.height * 3);
  return 10 * std::log10(255 * 255 * samples / sum);
}

}  // namespace tarnwick::test
