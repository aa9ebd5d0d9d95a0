#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "Demo/DemoFont.hpp"

namespace demo {

/// A colour with parts from 0 to 255. Mixed colours have fractions.
struct Colour {
  double red = 0, green = 0, blue = 0;
};

/// Returns the colour of a code 0xRRGGBB.
constexpr Colour rgb(std::uint32_t code) {
  return {static_cast<double>(code >> 16 & 0xff), static_cast<double>(code >> 8 & 0xff),
          static_cast<double>(code & 0xff)};
}

constexpr double mix(double from, double to, double share) { return from + (to - from) * share; }

constexpr Colour mix(const Colour& from, const Colour& to, double share) {
  return {mix(from.red, to.red, share), mix(from.green, to.green, share),
          mix(from.blue, to.blue, share)};
}

/// A picture to draw on, in pixels from the top left. A shape is a function that returns a pixel's
/// distance from the edge, negative inside. This gives smooth edges and soft shadows.
class Canvas {
 public:
  Canvas(std::int64_t width, std::int64_t height)
      : bitmap_{width, height,
                tarnwick::Data(
                    static_cast<std::size_t>(width * height * tarnwick::Bitmap::bytesPerPixel))} {}

  void blend(std::int64_t x, std::int64_t y, const Colour& colour, double opacity) {
    if (x < 0 || y < 0 || x >= bitmap_.width || y >= bitmap_.height) return;
    std::uint8_t* pixel = bitmap_.row(y) + x * tarnwick::Bitmap::bytesPerPixel;
    blendPart(pixel[0], colour.blue, opacity);
    blendPart(pixel[1], colour.green, opacity);
    blendPart(pixel[2], colour.red, opacity);
    pixel[3] = 0xff;
  }

  /// Gives each pixel of `area` the colour `colourAt(u, v)`, where u and v run from 0 to 1.
  template <typename ColourAt>
  void shade(const tarnwick::CGRect& area, ColourAt colourAt) {
    eachPixel(area, [&](std::int64_t x, std::int64_t y, double centreX, double centreY) {
      const double u = (centreX - area.origin.x) / area.size.width;
      const double v = (centreY - area.origin.y) / area.size.height;
      blend(x, y, colourAt(u, v), 1);
    });
  }

  void box(const tarnwick::CGRect& area, double radius, const Colour& colour, double opacity = 1,
           double softness = 1) {
    const tarnwick::CGPoint half{area.size.width / 2, area.size.height / 2};
    const tarnwick::CGPoint centre{area.origin.x + half.x, area.origin.y + half.y};
    shape(grown(area, softness), colour, opacity, softness, [=](double x, double y) {
      const double across = std::abs(x - centre.x) - half.x + radius;
      const double down = std::abs(y - centre.y) - half.y + radius;
      return std::hypot(std::max(across, 0.0), std::max(down, 0.0)) +
             std::min(std::max(across, down), 0.0) - radius;
    });
  }

  void disc(const tarnwick::CGPoint& centre, double radius, const Colour& colour) {
    box({{centre.x - radius, centre.y - radius}, {2 * radius, 2 * radius}}, radius, colour);
  }

  void line(const tarnwick::CGPoint& from, const tarnwick::CGPoint& to, double width,
            const Colour& colour, double opacity = 1) {
    const double across = to.x - from.x, down = to.y - from.y;
    const double squaredLength = across * across + down * down;
    const tarnwick::CGRect between{{std::min(from.x, to.x), std::min(from.y, to.y)},
                                   {std::abs(across), std::abs(down)}};
    shape(grown(between, width), colour, opacity, 1, [=](double x, double y) {
      const double along = ((x - from.x) * across + (y - from.y) * down) / squaredLength;
      const double t = std::clamp(along, 0.0, 1.0);
      return std::hypot(x - from.x - t * across, y - from.y - t * down) - width / 2;
    });
  }

  /// Draws `text` with its top left corner at (x, y), each dot `dot` pixels wide and high. Returns
  /// the x coordinate of the next character.
  std::int64_t text(std::int64_t x, std::int64_t y, std::int64_t dot, const Colour& colour,
                    std::string_view text) {
    for (const char character : text) {
      const font::Glyph& rows = font::glyph(character);
      for (std::int64_t j = 0; j < font::height * dot; ++j) {
        for (std::int64_t i = 0; i < font::width * dot; ++i) {
          const int row = rows[static_cast<std::size_t>(j / dot)];
          if (row >> (font::width - 1 - i / dot) & 1) blend(x + i, y + j, colour, 1);
        }
      }
      x += font::advance * dot;
    }
    return x;
  }

  /// Returns the picture. The canvas is empty afterwards.
  [[nodiscard]] std::shared_ptr<tarnwick::NSImage> takeImage() {
    return tarnwick::NSImage::fromBitmap(std::exchange(bitmap_, {}));
  }

 private:
  static void blendPart(std::uint8_t& part, double value, double opacity) {
    const double mixed = mix(static_cast<double>(part), value, opacity);
    part = static_cast<std::uint8_t>(std::lround(std::clamp(mixed, 0.0, 255.0)));
  }

  static tarnwick::CGRect grown(const tarnwick::CGRect& area, double by) {
    return {{area.origin.x - by, area.origin.y - by},
            {area.size.width + 2 * by, area.size.height + 2 * by}};
  }

  template <typename Action>
  void eachPixel(const tarnwick::CGRect& area, Action action) {
    const auto left = std::llround(area.origin.x), top = std::llround(area.origin.y);
    const auto right = std::llround(area.origin.x + area.size.width);
    const auto bottom = std::llround(area.origin.y + area.size.height);
    for (auto y = top; y < bottom; ++y) {
      for (auto x = left; x < right; ++x) {
        action(x, y, static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5);
      }
    }
  }

  template <typename Distance>
  void shape(const tarnwick::CGRect& area, const Colour& colour, double opacity, double softness,
             Distance distance) {
    eachPixel(area, [&](std::int64_t x, std::int64_t y, double centreX, double centreY) {
      const double cover = std::clamp(0.5 - distance(centreX, centreY) / softness, 0.0, 1.0);
      if (cover > 0) blend(x, y, colour, opacity * cover);
    });
  }

  tarnwick::Bitmap bitmap_;
};

}  // namespace demo
