#include "Tarnwick/NSImageExtension.hpp"

#include <new>

namespace tarnwick {
namespace {

/// Draws `region` of `image` over all of `target`. If memory is short, replaces `target` with an
/// image of the region's size without a bitmap.
void fill(std::shared_ptr<NSImage>& target, const NSImage& image, const CGRect& region) {
  try {
    target->draw(image, region, {{0, 0}, region.size});
  } catch (const std::bad_alloc&) {
    target = NSImage::create({0, 0});
    target->setSize(region.size);
  }
}

}  // namespace

std::shared_ptr<NSImage> crop(const NSImage& image, const CGRect& rect) {
  auto cropped = NSImage::create(rect.size);
  // NSImage::draw() counts from the bottom left.
  const CGFloat y = image.size().height - rect.origin.y - rect.size.height;
  fill(cropped, image, {{rect.origin.x, y}, rect.size});
  return cropped;
}

std::shared_ptr<NSImage> resize(NSImage& image, const CGSize& size) {
  auto resized = NSImage::create(size);
  image.setResizingMode(ResizingMode::tile);
  image.setSize(size);
  fill(resized, image, {{0, 0}, size});
  return resized;
}

}  // namespace tarnwick
