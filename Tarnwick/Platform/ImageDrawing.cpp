#include "Tarnwick/Platform/ImageDrawing.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "Tarnwick/Platform/ImageScaling.hpp"

namespace tarnwick {
namespace {

/// The difference in pixels that comes from computing with fractions and not from the caller.
constexpr CGFloat tolerance = 1e-6;

std::int64_t firstPixel(CGFloat position) {
  return static_cast<std::int64_t>(std::floor(position + tolerance));
}

std::int64_t endPixel(CGFloat position) {
  return static_cast<std::int64_t>(std::ceil(position - tolerance));
}

/// One side of a drawing: where it begins and how long it is in either bitmap, in pixels.
struct Side {
  CGFloat from, fromLength, into, intoLength;
  std::int64_t sourceSide, targetSide;
};

/// The pixels of one side that are drawn: `count` pixels of the target from `into` on, out of the
/// stretch of the source that begins at `from`. No pixels: nothing of it lies within both.
struct Stretch {
  CGFloat from = 0, fromLength = 0;
  std::int64_t into = 0, count = 0;
};

bool isUsable(const Side& side) {
  constexpr CGFloat limit = 1e15;  // well inside both the integers and the exact doubles
  const auto isWithin = [](CGFloat value) { return std::abs(value) < limit; };
  return isWithin(side.from) && isWithin(side.into) && isWithin(side.fromLength) &&
         isWithin(side.intoLength) && side.fromLength > tolerance && side.intoLength > tolerance;
}

bool keepsLength(const Side& side) {
  return std::abs(side.fromLength - side.intoLength) <= tolerance;
}

/// The whole pixels to copy, clipped to both bitmaps.
Stretch copied(const Side& side) {
  std::int64_t from = firstPixel(side.from), into = firstPixel(side.into);
  const std::int64_t before = std::max({std::int64_t{0}, -from, -into});
  const std::int64_t length = endPixel(side.fromLength) - before;
  from += before;
  into += before;
  const std::int64_t count = std::min({length, side.sourceSide - from, side.targetSide - into});
  return {static_cast<CGFloat>(from), static_cast<CGFloat>(count), into, count};
}

/// The target's pixels that the scaled stretch touches, clipped to both bitmaps, and the part of
/// the source that belongs to exactly these.
Stretch stretched(const Side& side) {
  const CGFloat ratio = side.intoLength / side.fromLength;
  const auto sourceEnd = static_cast<CGFloat>(side.sourceSide);
  const auto toTarget = [&](CGFloat x) { return side.into + (x - side.from) * ratio; };
  const auto toSource = [&](std::int64_t x) {
    const CGFloat position = side.from + (static_cast<CGFloat>(x) - side.into) / ratio;
    return std::clamp(position, CGFloat{0}, sourceEnd);
  };
  const std::int64_t into = firstPixel(
      std::clamp(toTarget(std::max(side.from, 0.0)), 0.0, static_cast<CGFloat>(side.targetSide)));
  const std::int64_t end =
      endPixel(std::clamp(toTarget(std::min(side.from + side.fromLength, sourceEnd)), 0.0,
                          static_cast<CGFloat>(side.targetSide)));
  const CGFloat from = toSource(into), fromLength = toSource(end) - from;
  return {from, fromLength, into, fromLength > 0 ? end - into : 0};
}

/// Copies the block of `source` whose first pixel is (x, y) over the pixels of `target`.
void copyBlock(const Bitmap& source, std::int64_t x, std::int64_t y, Bitmap& target,
               const Stretch& across, const Stretch& down) {
  const auto bytes = static_cast<std::size_t>(across.count * Bitmap::bytesPerPixel);
  for (std::int64_t row = 0; row < down.count; ++row) {
    std::memcpy(target.row(down.into + row) + across.into * Bitmap::bytesPerPixel,
                source.row(y + row) + x * Bitmap::bytesPerPixel, bytes);
  }
}

}  // namespace

void drawPixels(const Bitmap& source, const CGRect& from, Bitmap& target, const CGRect& into) {
  const Side width{from.origin.x,   from.size.width, into.origin.x,
                   into.size.width, source.width,    target.width};
  const Side height{from.origin.y,    from.size.height, into.origin.y,
                    into.size.height, source.height,    target.height};
  if (!isUsable(width) || !isUsable(height)) return;
  const bool isCopy = keepsLength(width) && keepsLength(height);
  const Stretch across = isCopy ? copied(width) : stretched(width);
  const Stretch down = isCopy ? copied(height) : stretched(height);
  if (across.count <= 0 || down.count <= 0) return;
  if (isCopy) {
    copyBlock(source, static_cast<std::int64_t>(across.from), static_cast<std::int64_t>(down.from),
              target, across, down);
    return;
  }
  const CGRect region{{across.from, down.from}, {across.fromLength, down.fromLength}};
  Bitmap drawn = scaled(source, region, across.count, down.count);
  if (drawn.pixels.size() == target.pixels.size()) {
    target = std::move(drawn);  // all of it
  } else if (!drawn.pixels.empty()) {
    copyBlock(drawn, 0, 0, target, across, down);
  }
}

}  // namespace tarnwick
