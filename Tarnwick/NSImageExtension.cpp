#include "Tarnwick/NSImageExtension.hpp"

namespace tarnwick {

std::shared_ptr<NSImage> crop(const NSImage& image, const CGRect& rect) {
  auto cropped = NSImage::create(rect.size);
  // Drawing counts from the bottom left.
  const CGFloat y = image.size().height - rect.origin.y - rect.size.height;
  cropped->draw(image, {{rect.origin.x, y}, rect.size}, {{0, 0}, rect.size});
  return cropped;
}

std::shared_ptr<NSImage> resize(NSImage& image, const CGSize& size) {
  auto resized = NSImage::create(size);
  image.setResizingMode(ResizingMode::tile);
  image.setSize(size);
  const CGRect whole{{0, 0}, size};
  resized->draw(image, whole, whole);
  return resized;
}

}  // namespace tarnwick
