#pragma once

namespace [[gnu::visibility("default")]] tarnwick {

/// A coordinate or length: logical units of an image, or pixels of a screen.
using CGFloat = double;

/// A point.
struct CGPoint {
  CGFloat x = 0;  ///< from left to right
  CGFloat y = 0;  ///< upwards or downwards, depending on the function

  /// Whether both coordinates are equal.
  bool operator==(const CGPoint&) const = default;
};

/// A size.
struct CGSize {
  CGFloat width = 0;   ///< from left to right
  CGFloat height = 0;  ///< from top to bottom

  /// Whether both lengths are equal.
  bool operator==(const CGSize&) const = default;
};

/// A rectangle. Each function that takes one says whether its origin is top left or bottom left.
struct CGRect {
  CGPoint origin;  ///< the top left or bottom left corner
  CGSize size;     ///< the extent from the origin

  /// Whether origin and size are equal.
  bool operator==(const CGRect&) const = default;
};

}  // namespace tarnwick
