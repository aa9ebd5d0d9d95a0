#include "Tarnwick/Platform/ImageDrawing.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "Tarnwick/Platform/ImageScaling.hpp"

namespace tarnwick {
namespace {

/// In pixels. Smaller differences are rounding errors.
constexpr CGFloat tolerance = 1e-6;

/// Integers up to this limit fit 64 bits and are exact as doubles.
constexpr CGFloat largest = 1e15;

std::int64_t firstPixel(CGFloat position) {
  return static_cast<std::int64_t>(std::floor(position + tolerance));
}

/// One side of a drawing: its start and length in each bitmap, in pixels.
struct Side {
  CGFloat from, fromLength, into, intoLength;
  std::int64_t sourceSide, targetSide;
};

/// Pixels along one side.
struct Pixels {
  std::int64_t first, count;
};

/// A part of one side of the source, in pixels.
struct Stretch {
  CGFloat from, length;
};

bool isUsable(const Side& side) {
  const auto isLength = [](CGFloat length) { return length > tolerance && length < largest; };
  return isLength(side.fromLength) && isLength(side.intoLength);
}

bool keepsLength(const Side& side) {
  return std::abs(side.fromLength - side.intoLength) <= tolerance;
}

/// The pixels of the target that the drawing covers, fully or in part. No pixels if the drawing is
/// outside either bitmap.
Pixels covered(const Side& side) {
  const CGFloat ratio = side.intoLength / side.fromLength;
  const auto toTarget = [&](CGFloat position) {
    return std::clamp(side.into + (position - side.from) * ratio, 0.0,
                      static_cast<CGFloat>(side.targetSide));
  };
  const auto sourceEnd = static_cast<CGFloat>(side.sourceSide);
  const CGFloat begin = toTarget(std::max(side.from, 0.0));
  const CGFloat end = toTarget(std::min(side.from + side.fromLength, sourceEnd));
  if (!(begin < end)) return {0, 0};  // also if one is not a number
  const std::int64_t first = firstPixel(begin);
  return {first, pixelCount(end) - first};
}

/// The part of the source that is scaled to these pixels of the target. At least `tolerance` long,
/// even if its ends are equal as floating-point numbers.
Stretch stretched(const Side& side, const Pixels& pixels) {
  const auto toSource = [&](std::int64_t x) {
    const CGFloat position =
        side.from + (static_cast<CGFloat>(x) - side.into) * side.fromLength / side.intoLength;
    return std::clamp(position, CGFloat{0}, static_cast<CGFloat>(side.sourceSide));
  };
  const CGFloat from = toSource(pixels.first);
  return {from, std::max(toSource(pixels.first + pixels.count) - from, tolerance)};
}

/// The source of copied pixels along one side. The region begins at `lowest`. Pixel i of the
/// drawing is copied from `first` + i, or from `lowest` if that is greater.
struct Origin {
  std::int64_t first = 0, lowest = 0;
};

/// Returns the origin of these pixels and limits their count to what the source has. At fractional
/// positions the drawing can cover one pixel more than its region has. Then `first` is one pixel
/// before the region, and the region's first pixel is copied twice.
Origin copied(const Side& side, Pixels& pixels) {
  const std::int64_t last = side.sourceSide - 1;
  const std::int64_t lowest = std::clamp(firstPixel(side.from), std::int64_t{0}, last);
  const std::int64_t first =
      std::clamp(pixels.first + firstPixel(side.from - side.into), lowest - 1, last);
  pixels.count = std::min(pixels.count, side.sourceSide - first);
  return {first, lowest};
}

/// Copies pixels of `source` over these pixels of `target`.
void copyBlock(const Bitmap& source, const Origin& x, const Origin& y, Bitmap& target,
               const Pixels& across, const Pixels& down) {
  constexpr std::int64_t bytes = Bitmap::bytesPerPixel;
  for (std::int64_t i = 0; i < down.count; ++i) {
    const std::uint8_t* const from = source.row(std::max(y.first + i, y.lowest));
    std::uint8_t* const into = target.row(down.first + i) + across.first * bytes;
    std::memcpy(into, from + std::max(x.first, x.lowest) * bytes, bytes);
    std::memcpy(into + bytes, from + (x.first + 1) * bytes,
                static_cast<std::size_t>((across.count - 1) * bytes));
  }
}

}  // namespace

std::int64_t pixelCount(CGFloat length) {
  if (!(length > 0)) return 0;  // also if it is not a number
  return static_cast<std::int64_t>(std::ceil(std::min(length, largest) - tolerance));
}

void drawPixels(const Bitmap& source, const CGRect& from, Bitmap& target, const CGRect& into) {
  const Side width{from.origin.x,   from.size.width, into.origin.x,
                   into.size.width, source.width,    target.width};
  const Side height{from.origin.y,    from.size.height, into.origin.y,
                    into.size.height, source.height,    target.height};
  if (!isUsable(width) || !isUsable(height)) return;
  Pixels across = covered(width), down = covered(height);
  if (across.count <= 0 || down.count <= 0) return;
  if (keepsLength(width) && keepsLength(height)) {
    const Origin x = copied(width, across), y = copied(height, down);
    copyBlock(source, x, y, target, across, down);
    return;
  }
  const Stretch columns = stretched(width, across), rows = stretched(height, down);
  Bitmap drawn = scaled(source, {{columns.from, rows.from}, {columns.length, rows.length}},
                        across.count, down.count);
  if (drawn.pixels.size() == target.pixels.size()) {
    target = std::move(drawn);  // the drawing covers all of it
  } else {
    copyBlock(drawn, {}, {}, target, across, down);
  }
}

}  // namespace tarnwick
