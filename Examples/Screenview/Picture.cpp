#include "Screenview/Picture.hpp"

#include <algorithm>
#include <cmath>
#include <new>
#include <numeric>
#include <utility>

namespace screenview {
namespace {

using tarnwick::CGFloat, tarnwick::CGRect, tarnwick::CGSize, tarnwick::NSImage;

constexpr CGFloat longestSide = 16384, mostPixels = 1 << 26;  // limits of the picture
constexpr CGFloat longestBounds = 1 << 20;                    // limit of a screen's sides
constexpr std::size_t mostChanges = 64;                       // more are merged into one

/// Whether the image is a preview: its bounds begin at 0, 0, and it is less wide or high than they
/// are. A sharer sends one first. It tells the viewer the size of the screen, which may have become
/// smaller.
bool isPreview(const CGSize& pixels, const std::optional<CGRect>& bounds) {
  if (!bounds || bounds->origin != tarnwick::CGPoint{0, 0}) return false;
  return pixels.width < bounds->size.width || pixels.height < bounds->size.height;
}

bool areSensible(const CGRect& bounds) {
  return bounds.size.width > 0 && bounds.size.width <= longestBounds && bounds.size.height > 0 &&
         bounds.size.height <= longestBounds;
}

/// Returns the size of a picture after it is cropped to the limits at the right and at the bottom.
CGSize limited(const CGSize& size) {
  const CGFloat width = std::min(size.width, longestSide);
  return {width, std::min({size.height, longestSide, std::floor(mostPixels / width)})};
}

/// Returns the size that a picture of `size` needs in order to hold `bounds`, within the limits.
CGSize grown(const CGSize& size, const CGRect& bounds) {
  const CGSize larger =
      limited({std::max({size.width, bounds.origin.x + bounds.size.width, CGFloat{1}}),
               std::max({size.height, bounds.origin.y + bounds.size.height, CGFloat{1}})});
  // At the pixel limit a larger width reduces the height. In that case the old size stays.
  return larger.height < size.height ? size : larger;
}

/// Returns the part of a rectangle that is inside a picture of `size`, or nothing if it is outside.
std::optional<Area> visiblePart(const CGRect& bounds, const CGSize& size) {
  const CGFloat left = std::max(bounds.origin.x, CGFloat{0});
  const CGFloat top = std::max(bounds.origin.y, CGFloat{0});
  const CGFloat right = std::min(bounds.origin.x + bounds.size.width, size.width);
  const CGFloat bottom = std::min(bounds.origin.y + bounds.size.height, size.height);
  if (left >= right || top >= bottom) return std::nullopt;
  return Area{static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
              static_cast<int>(bottom - top)};
}

Area unionOf(const Area& one, const Area& other) {
  const int x = std::min(one.x, other.x), y = std::min(one.y, other.y);
  return {x, y, std::max(one.x + one.width, other.x + other.width) - x,
          std::max(one.y + one.height, other.y + other.height) - y};
}

std::shared_ptr<NSImage> blackImage(const CGSize& size) {
  tarnwick::Bitmap bitmap{
      static_cast<std::int64_t>(size.width), static_cast<std::int64_t>(size.height), {}};
  bitmap.pixels.resize(static_cast<std::size_t>(bitmap.height) * bitmap.rowBytes());
  constexpr std::size_t alpha = 3;  // its byte in a pixel
  for (std::size_t i = alpha; i < bitmap.pixels.size(); i += tarnwick::Bitmap::bytesPerPixel) {
    bitmap.pixels[i] = 0xFF;
  }
  return NSImage::fromBitmap(std::move(bitmap));
}

/// Draws all of `source` over `bounds`, in pixels of `target` from its top left. Scales if needed.
void drawOver(NSImage& target, const NSImage& source, const CGRect& bounds) {
  // draw() measures from the bottom left.
  const CGFloat y = target.size().height - bounds.origin.y - bounds.size.height;
  target.draw(source, {{0, 0}, source.size()}, {{bounds.origin.x, y}, bounds.size});
}

}  // namespace

void Picture::imageReceived(std::shared_ptr<NSImage> image,
                            std::optional<tarnwick::CGRect> bounds) try {
  const bool isSmall = isPreview(image->size(), bounds), isWhole = isSmall || !bounds;
  CGRect place = bounds.value_or(CGRect{{0, 0}, image->size()});
  if (bounds && !areSensible(place)) return;
  const std::shared_ptr<NSImage> before = canvas();
  const CGSize oldSize = before && !isWhole ? before->size() : CGSize{};
  const CGSize size = isWhole ? limited(place.size) : grown(oldSize, place);
  const std::optional<Area> visible = visiblePart(place, size);
  if (!visible) return;
  if (isSmall && before && before->size() == size) return;  // the old picture is better

  // Scaling and creating a canvas take long, so both precede the lock.
  if (image->size() != place.size) {
    const CGRect part{{CGFloat(visible->x), CGFloat(visible->y)},
                      {CGFloat(visible->width), CGFloat(visible->height)}};
    const auto scaled = blackImage(part.size);
    drawOver(*scaled, *image,
             {{place.origin.x - part.origin.x, place.origin.y - part.origin.y}, place.size});
    image = scaled;
    place = part;
  }
  std::shared_ptr<NSImage> after = before;
  if (isWhole && image->size() == size) {
    after = image;
  } else if (size != oldSize) {
    after = blackImage(size);
    if (before && !isWhole) drawOver(*after, *before, {{0, 0}, oldSize});
    drawOver(*after, *image, place);
  }

  const std::scoped_lock hold(lock_);
  if (after == before) {
    drawOver(*canvas_, *image, place);
    noteChange(*visible);
  } else {
    canvas_ = after;
    status_.width = static_cast<int>(size.width);
    status_.height = static_cast<int>(size.height);
    noteChange({0, 0, status_.width, status_.height});
  }
  status_.last = Clock::now();
  if (status_.count++ == 0) status_.first = status_.last;
} catch (const std::bad_alloc&) {
  // This image is lost. Memory may suffice for the next one.
}

Picture::Status Picture::status() const {
  const std::scoped_lock hold(lock_);
  return status_;
}

std::shared_ptr<NSImage> Picture::copy() const {
  const std::scoped_lock hold(lock_);
  return canvas_ ? NSImage::fromBitmap(*canvas_->bitmap()) : nullptr;
}

bool Picture::takeChanges(const Upload& upload) {
  const std::scoped_lock hold(lock_);
  if (changes_.empty()) return false;
  upload(*canvas_->bitmap(), changes_);
  changes_.clear();
  return true;
}

void Picture::onChange(std::function<void()> wake) {
  const std::scoped_lock hold(lock_);
  wake_ = std::move(wake);
}

std::shared_ptr<NSImage> Picture::canvas() const {
  const std::scoped_lock hold(lock_);
  return canvas_;
}

/// The caller must hold the lock.
void Picture::noteChange(const Area& area) {
  if (changes_.empty() && wake_) wake_();
  const bool isAll = area.width == status_.width && area.height == status_.height;
  if (isAll) changes_.clear();
  if (changes_.size() < mostChanges) {
    changes_.push_back(area);
  } else {
    const Area all = std::accumulate(changes_.begin(), changes_.end(), area, unionOf);
    changes_.assign(1, all);
  }
}

}  // namespace screenview
