#pragma once

namespace [[gnu::visibility("default")]] tarnwick {

/// A coordinate or length: logical units of an image, or pixels of a screen.
using CGFloat = double;

/// A place.
struct CGPoint {
  CGFloat x = 0;  ///< from left to right
  CGFloat y = 0;  ///< up or down, as whoever takes it says

  /// Equal in both.
  bool operator==(const CGPoint&) const = default;
};

/// An extent.
struct CGSize {
  CGFloat width = 0;   ///< from left to right
  CGFloat height = 0;  ///< from top to bottom

  /// Equal in both.
  bool operator==(const CGSize&) const = default;
};

/// A rectangle. Which corner its origin is, top left or bottom left, is said by whoever takes one.
struct CGRect {
  CGPoint origin;  ///< one of its corners
  CGSize size;     ///< how far it reaches from there

  /// Equal in both.
  bool operator==(const CGRect&) const = default;
};

}  // namespace tarnwick
