#pragma once

#include <memory>
#include <optional>

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/Mutex.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// How an image fills an area larger than itself. For the application that draws the image:
/// NSImage::draw() ignores it.
enum class ResizingMode {
  tile = 0,     ///< repeated
  stretch = 1,  ///< enlarged; the default
};

/// A picture: pixels, and a logical size that they fill. Owned by std::shared_ptr. Not locked:
/// several threads may read an image at the same time, or one thread may change it.
class NSImage final {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// Creates a transparent image of a logical size, with one pixel per unit. Fractions are rounded
  /// up; a fraction of at most 1e-6 is a rounding error and adds no pixel. The image has no bitmap
  /// if the size is empty, negative, not finite or over the pixel limit, or if memory is short.
  /// Throws std::bad_alloc if there is no memory for the object itself.
  [[nodiscard]] static std::shared_ptr<NSImage> create(const CGSize& size);

  /// Decodes a JPEG or PNG file to an image with one pixel per unit. Returns null if the bytes are
  /// not a complete image, if the image is over the pixel limit, if a side of a PNG file is over
  /// 1,000,000 pixels, or if memory is short.
  [[nodiscard]] static std::shared_ptr<NSImage> fromData(const Data& encoded);

  /// Creates an image of these pixels, with one pixel per unit. Returns null if a side is not
  /// positive, if the pixels do not match the sides, or if memory is short.
  [[nodiscard]] static std::shared_ptr<NSImage> fromBitmap(Bitmap bitmap);

  /// The logical size.
  [[nodiscard]] CGSize size() const { return size_; }

  /// Sets the logical size. The pixels do not change; they fill the new size. A side that is set
  /// back to its first length has one pixel per unit again.
  void setSize(const CGSize& size) { size_ = size; }

  /// How the image fills an area larger than itself.
  [[nodiscard]] ResizingMode resizingMode() const { return resizingMode_; }

  /// Sets how the image fills an area larger than itself.
  void setResizingMode(ResizingMode mode) { resizingMode_ = mode; }

  /// The pixels; null without a bitmap. Valid until the image is drawn into or destroyed.
  [[nodiscard]] const Bitmap* bitmap() const { return bitmap_ ? &*bitmap_ : nullptr; }

  /// Draws the region `from` of `source` over the region `into` of this image, alpha included. Each
  /// region is in logical units of its image, from the bottom left. Regions of equal size in pixels
  /// are copied pixel for pixel, from whole positions. Others are scaled. Every pixel that the
  /// drawing covers, fully or in part, is replaced. Parts outside either image are left out.
  /// `source` must be another image. Throws std::bad_alloc if memory is short for scaling; this
  /// image is then unchanged.
  void draw(const NSImage& source, const CGRect& from, const CGRect& into);

  /// Encodes all pixels, without alpha, as a JPEG file. `compressionFactor` runs from 0.0 (smallest
  /// file) to 1.0 (best quality). Returns no value without a bitmap, if a side is over 65,500
  /// pixels, or if memory is short. The image stores the last file until it is drawn into: a second
  /// call with the same factor, for example to send the image, returns that file.
  [[nodiscard]] std::optional<Data> jpegRepresentation(float compressionFactor) const;

  /// Encodes all pixels unchanged as a PNG file. Returns no value without a bitmap, if a side is
  /// over 1,000,000 pixels, or if memory is short.
  [[nodiscard]] std::optional<Data> pngRepresentation() const;

  /// Closed to others: use the functions above.
  NSImage(Private, const CGSize& size, std::optional<Bitmap> bitmap);

 private:
  struct JPEG {
    float compressionFactor;
    Data file;
  };

  /// Converts a region in logical units from the bottom left to pixels from the top left.
  [[nodiscard]] CGRect inPixels(const CGRect& region) const;

  [[nodiscard]] std::shared_ptr<const JPEG> lastJPEG() const TARNWICK_EXCLUDES(jpegLock_);
  void keepJPEG(std::shared_ptr<const JPEG> jpeg) const TARNWICK_EXCLUDES(jpegLock_);

  const CGSize createdSize_;
  CGSize size_;
  ResizingMode resizingMode_ = ResizingMode::stretch;
  std::optional<Bitmap> bitmap_;

  mutable Mutex jpegLock_;  // several reading threads may encode at the same time
  mutable std::shared_ptr<const JPEG> lastJPEG_ TARNWICK_GUARDED_BY(jpegLock_);
};

}  // namespace tarnwick
