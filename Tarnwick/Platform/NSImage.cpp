#include "Tarnwick/Platform/NSImage.hpp"

#include <new>
#include <utility>

#include "Tarnwick/Platform/ImageCodec.hpp"
#include "Tarnwick/Platform/ImageDrawing.hpp"

namespace tarnwick {
namespace {

std::optional<Bitmap> transparentBitmap(const CGSize& size) try {
  const std::int64_t width = pixelCount(size.width), height = pixelCount(size.height);
  if (!isWithinPixelLimit(width, height)) return std::nullopt;
  return Bitmap{width, height,
                Data(static_cast<std::size_t>(width * height * Bitmap::bytesPerPixel))};
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

CGSize sizeInPixels(const Bitmap& bitmap) {
  return {static_cast<CGFloat>(bitmap.width), static_cast<CGFloat>(bitmap.height)};
}

bool hasMatchingPixels(const Bitmap& bitmap) {
  constexpr std::int64_t sideLimit = std::int64_t{1} << 30;  // so that the product fits 64 bits
  if (bitmap.width <= 0 || bitmap.height <= 0) return false;
  if (bitmap.width > sideLimit || bitmap.height > sideLimit) return false;
  const std::int64_t bytes = bitmap.width * bitmap.height * Bitmap::bytesPerPixel;
  return bitmap.pixels.size() == static_cast<std::uint64_t>(bytes);
}

/// Pixels per unit along one side. It is 1 while the side has the length it was created with.
CGFloat scale(std::int64_t pixels, CGFloat units, CGFloat createdUnits) {
  return units == createdUnits ? 1 : static_cast<CGFloat>(pixels) / units;
}

}  // namespace

NSImage::NSImage(Private, const CGSize& size, std::optional<Bitmap> bitmap)
    : createdSize_(size), size_(size), bitmap_(std::move(bitmap)) {}

std::shared_ptr<NSImage> NSImage::create(const CGSize& size) {
  return std::make_shared<NSImage>(Private{}, size, transparentBitmap(size));
}

std::shared_ptr<NSImage> NSImage::fromData(const Data& encoded) {
  std::optional<Bitmap> bitmap = ImageCodec::decode(encoded);
  return bitmap ? fromBitmap(std::move(*bitmap)) : nullptr;
}

std::shared_ptr<NSImage> NSImage::fromBitmap(Bitmap bitmap) try {
  if (!hasMatchingPixels(bitmap)) return nullptr;
  return std::make_shared<NSImage>(Private{}, sizeInPixels(bitmap), std::move(bitmap));
} catch (const std::bad_alloc&) {
  return nullptr;
}

CGRect NSImage::inPixels(const CGRect& region) const {
  const CGFloat across = scale(bitmap_->width, size_.width, createdSize_.width);
  const CGFloat down = scale(bitmap_->height, size_.height, createdSize_.height);
  const CGFloat top = size_.height - region.origin.y - region.size.height;
  return {{region.origin.x * across, top * down},
          {region.size.width * across, region.size.height * down}};
}

void NSImage::draw(const NSImage& source, const CGRect& from, const CGRect& into) {
  if (!bitmap_ || !source.bitmap_) return;
  drawPixels(*source.bitmap_, source.inPixels(from), *bitmap_, inPixels(into));
  keepJPEG(nullptr);
}

std::optional<Data> NSImage::jpegRepresentation(float compressionFactor) const try {
  if (!bitmap_) return std::nullopt;
  const std::shared_ptr<const JPEG> last = lastJPEG();
  if (last && last->compressionFactor == compressionFactor) return last->file;
  std::optional<Data> file = ImageCodec::encodeJPEG(*bitmap_, compressionFactor);
  if (file) keepJPEG(std::make_shared<JPEG>(JPEG{compressionFactor, *file}));
  return file;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

std::optional<Data> NSImage::pngRepresentation() const try {
  return bitmap_ ? ImageCodec::encodePNG(*bitmap_) : std::nullopt;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

std::shared_ptr<const NSImage::JPEG> NSImage::lastJPEG() const {
  const MutexLock lock(jpegLock_);
  return lastJPEG_;
}

void NSImage::keepJPEG(std::shared_ptr<const JPEG> jpeg) const {
  const MutexLock lock(jpegLock_);
  lastJPEG_ = std::move(jpeg);
}

}  // namespace tarnwick
