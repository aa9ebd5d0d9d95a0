#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "Demo/DemoCanvas.hpp"

namespace demo {

/// Mountains and clouds over a lake, generated from noise. The picture has the fine detail of a
/// photograph and depends only on the seed and the light.
class Landscape {
 public:
  struct Light {
    Colour zenith, horizon, sun, cloud, far, near;
  };

  constexpr Landscape(const Light& light, std::uint32_t seed) : light_(light), seed_(seed) {}

  /// Returns the colour at (u, v), each from 0 to 1 from the top left. `grain` is the range of the
  /// added noise, which resembles that of a camera, on the scale of Colour.
  [[nodiscard]] Colour colourAt(double u, double v, double grain) const {
    Colour colour = v < shore ? scenery(u, v) : water(u, v);
    const double noise =
        grain *
        (random(static_cast<std::int64_t>(u * 1e4), static_cast<std::int64_t>(v * 1e4)) - 0.5);
    return {colour.red + noise, colour.green + noise, colour.blue + noise};
  }

 private:
  static constexpr double shore = 0.7, highest = 0.46;  // of the ridges above the shore
  static constexpr int ridges = 4;

  [[nodiscard]] Colour scenery(double u, double v) const {
    return v < shore - highest ? sky(u, v) : fromRidge(ridges - 1, u, v);
  }

  /// Returns the colour of the ridge `i`, 0 being the farthest, or of the scenery behind it.
  [[nodiscard]] Colour fromRidge(int i, double u, double v) const {
    if (i < 0) return sky(u, v);
    const double depth = static_cast<double>(i) / (ridges - 1);
    const double height = mix(0.34, 0.1, depth) * (0.35 + fractal(u * mix(3, 5, depth), 9.1 * i));
    const double cover = std::clamp((v - shore + height) * 900, 0.0, 1.0);
    if (cover >= 1) return slope(u, v, depth);
    const Colour behind = fromRidge(i - 1, u, v);
    return cover > 0 ? mix(behind, slope(u, v, depth), cover) : behind;
  }

  [[nodiscard]] Colour sky(double u, double v) const {
    const double fromSun = std::hypot((u - 0.7) * 1.7, v - 0.36);
    Colour colour = mix(light_.zenith, light_.horizon, std::pow(v / shore, 0.8));
    colour = mix(colour, light_.sun, 0.8 * std::exp(-fromSun * 5));
    const double density = fractal(u * 3.5 + 7, v * 11) - 0.5;
    colour = mix(colour, light_.cloud, std::clamp(density * 3.2, 0.0, 0.85));
    return mix(colour, light_.sun, std::clamp((0.05 - fromSun) * 300, 0.0, 1.0));
  }

  [[nodiscard]] Colour slope(double u, double v, double depth) const {
    const double relief = fractal(u * 38 + depth * 50, v * 60) - 0.5;
    const Colour colour = mix(light_.far, light_.near, depth);
    return mix(mix(colour, light_.horizon, 0.25 * (1 - depth)), light_.sun,
               std::clamp(relief * mix(0.5, 0.24, depth), 0.0, 0.3));
  }

  [[nodiscard]] Colour water(double u, double v) const {
    const double distance = v - shore;
    const double ripple = (fractal(u * 12, distance * 160) - 0.5) * (0.01 + 0.3 * distance);
    const Colour mirrored = scenery(u + ripple * 0.2, shore - std::abs(distance * 1.7 + ripple));
    return mix(mirrored, light_.near, 0.18 + distance);
  }

  /// Noise in five octaves, mostly between 0.2 and 0.8.
  [[nodiscard]] double fractal(double x, double y) const {
    double sum = 0, weight = 0.5;
    for (int octave = 0; octave < 5; ++octave, weight /= 2) {
      sum += weight * smoothNoise(x, y);
      x = x * 2.03 + 17;
      y = y * 2.03 + 31;
    }
    return sum;
  }

  [[nodiscard]] double smoothNoise(double x, double y) const {
    const std::int64_t i = wholePart(x), j = wholePart(y);
    const double across = eased(x - static_cast<double>(i));
    const double down = eased(y - static_cast<double>(j));
    return mix(mix(random(i, j), random(i + 1, j), across),
               mix(random(i, j + 1), random(i + 1, j + 1), across), down);
  }

  /// Replaces std::floor(), a slow call on many processors. Drawing spends most of its time here.
  static std::int64_t wholePart(double x) {
    const auto whole = static_cast<std::int64_t>(x);
    return static_cast<double>(whole) > x ? whole - 1 : whole;
  }

  static double eased(double t) { return t * t * (3 - 2 * t); }

  /// Returns a pseudo-random number from 0 to 1 that is fixed for each grid point.
  [[nodiscard]] double random(std::int64_t i, std::int64_t j) const {
    std::uint32_t bits = static_cast<std::uint32_t>(i) * 0x9e3779b1U +
                         static_cast<std::uint32_t>(j) * 0x85ebca77U + seed_ * 0xc2b2ae3dU;
    bits = (bits ^ bits >> 15) * 0x2c1b3c6dU;
    bits = (bits ^ bits >> 12) * 0x297a2d39U;
    return static_cast<double>((bits ^ bits >> 15) >> 8) / 0xffffff;
  }

  Light light_;
  std::uint32_t seed_;
};

inline constexpr Landscape dusk{
    {rgb(0x141b4d), rgb(0xe8775a), rgb(0xffd28a), rgb(0xb4587a), rgb(0x6a4a78), rgb(0x0f1230)}, 3};
inline constexpr Landscape morning{
    {rgb(0x2f6fb5), rgb(0xcfe6f2), rgb(0xfff6da), rgb(0xfafcff), rgb(0x86a5b8), rgb(0x1f3b2c)}, 11};

}  // namespace demo
