#pragma once

#include <algorithm>
#include <cmath>

#include "Tarnwick/Tarnwick.hpp"

namespace tarnwick::test {

/// An opaque gradient: blue rises to the right, green downwards, red in both directions. It looks
/// the same at every size, so a scaled gradient must look like a new one of that size.
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

/// The gradient with noise, dark lines and coloured corners, which show turned axes and swapped
/// channels: red and green at the top, blue and white at the bottom.
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

inline Bitmap translucent(std::int64_t width, std::int64_t height) {
  Bitmap bitmap = picture(width, height);
  for (std::size_t i = 3; i < bitmap.pixels.size(); i += 4) {
    bitmap.pixels[i] = static_cast<std::uint8_t>(i / 4);
  }
  return bitmap;
}

/// The peak signal-to-noise ratio of the colours in decibels; -1 if the sizes differ.
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

inline Data stuffed(Data file, std::size_t position, std::size_t count) {
  file.insert(file.begin() + static_cast<std::ptrdiff_t>(position), count, 0x5A);
  return file;
}

/// The position of the first segment with this marker in a JPEG file.
inline std::size_t segment(const Data& file, int marker) {
  std::size_t position = 2;
  while (file.at(position + 1) != marker) {
    position += std::size_t{2} + file.at(position + 2) * std::size_t{256} + file.at(position + 3);
  }
  return position;
}

/// A grey JPEG file of `count` components without subsampling, coded in zero bits only. It is
/// progressive if `scans` > 0, and then complete if `scans` > `count`.
inline Data greyJPEG(int count, int width, int height, int scans = 0) {
  Data file;
  const auto add = [&](const std::vector<int>& more, std::size_t zeros = 0) {
    for (const int byte : more) file.push_back(static_cast<std::uint8_t>(byte));
    file.resize(file.size() + zeros);
  };
  add({0xFF, 0xD8, 0xFF, 0xDB, 0, 67}, 65);
  add({0xFF, 0xC4, 0, 20, 0x00, 1}, 16);  // one code: no difference
  add({0xFF, 0xC4, 0, 20, 0x10, 1}, 16);  // one code: end of block
  add({0xFF, scans > 0 ? 0xC2 : 0xC0, 0, 8 + 3 * count, 8, height / 256, height % 256});
  add({width / 256, width % 256, count});
  for (int id = 1; id <= count; ++id) add({id, 0x11, 0});
  add({0xFF, 0xDA, 0, 6 + 2 * count, count});
  for (int id = 1; id <= count; ++id) add({id, 0});
  const auto blocks =
      static_cast<std::size_t>((width + 7) / 8) * static_cast<std::size_t>((height + 7) / 8);
  const std::size_t codes = blocks * static_cast<std::size_t>(scans > 0 ? count : 2 * count);
  add({0, scans > 0 ? 0 : 63, 0}, codes / 8 + 1);
  int left = scans - 1;
  for (int id = 1; id <= count; ++id) {  // one coefficient per scan, the rest in the last scan
    const int parts = std::min(63, left - (count - id));
    for (int part = 1; part <= parts; ++part, --left) {
      add({0xFF, 0xDA, 0, 8, 1, id, 0, part, part < parts ? part : 63, 0}, blocks / 8 + 1);
    }
  }
  add({0xFF, 0xD9});
  return file;
}

}  // namespace tarnwick::test
