#pragma once

namespace tarnwick {

/// A coordinate or length: logical units of an image, or pixels of a screen.
using CGFloat = double;

struct CGPoint {
  CGFloat x = 0, y = 0;
  bool operator==(const CGPoint&) const = default;
};

struct CGSize {
  CGFloat width = 0, height = 0;
  bool operator==(const CGSize&) const = default;
};

/// A rectangle. Which corner its origin is, top left or bottom left, is said by whoever takes one.
struct CGRect {
  CGPoint origin;
  CGSize size;
  bool operator==(const CGRect&) const = default;
};

}  // namespace tarnwick
