#pragma once

#include <memory>
#include <optional>

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Data.hpp"
#include "Tarnwick/Platform/Geometry.hpp"
#include "Tarnwick/Platform/Mutex.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// How an image is meant to fill an area larger than itself. Kept for whoever draws it; the
/// framework's own drawing does not look at it.
enum class ResizingMode {
  tile = 0,     ///< repeated
  stretch = 1,  ///< enlarged; what an image has until it is set
};

/// A picture: pixels, and a logical size which they fill. Shared by std::shared_ptr. Not locked:
/// any number of threads may read an image at a time, or one thread may change it.
class NSImage final {
  struct Private {
    explicit Private() = default;
  };

 public:
  /// A transparent image of a logical size, with one pixel per unit. Fractions are rounded up, but
  /// a fraction of at most 1e-6 is a rounding error and adds no pixel. The image has no bitmap if
  /// the size is empty, negative, not finite or over the pixel limit, or if memory is short. Throws
  /// std::bad_alloc if there is no memory for the object itself.
  [[nodiscard]] static std::shared_ptr<NSImage> create(const CGSize& size);

  /// The image in a JPEG or PNG file, with one pixel per unit. Null if the bytes are not a complete
  /// image, if the image is over the pixel limit, if a side of a PNG file is over 1,000,000 pixels,
  /// or if memory is short.
  [[nodiscard]] static std::shared_ptr<NSImage> fromData(const Data& encoded);

  /// An image of these pixels, with one pixel per unit. Null if a side is not positive, if the
  /// pixels do not match the sides, or if memory is short.
  [[nodiscard]] static std::shared_ptr<NSImage> fromBitmap(Bitmap bitmap);

  /// The logical size.
  [[nodiscard]] CGSize size() const { return size_; }

  /// Sets the logical size. The pixels stay, and fill the new size. A side that is set back to the
  /// length it was created with has one pixel per unit again.
  void setSize(const CGSize& size) { size_ = size; }

  /// How the image is meant to fill an area larger than itself.
  [[nodiscard]] ResizingMode resizingMode() const { return resizingMode_; }

  /// Sets it.
  void setResizingMode(ResizingMode mode) { resizingMode_ = mode; }

  /// The pixels; null when there are none. Valid as long as the image is, and not drawn into.
  [[nodiscard]] const Bitmap* bitmap() const { return bitmap_ ? &*bitmap_ : nullptr; }

  /// Draws the region `from` of `source` over the region `into` of this image, alpha included. Both
  /// are in their image's logical units from its bottom left. Regions with equal sizes in pixels
  /// are copied pixel for pixel, from whole positions. Others are scaled. Every pixel that the
  /// drawing covers, fully or in part, is replaced. What lies outside either image changes nothing.
  /// `source` must be another image. Throws std::bad_alloc if memory is short for scaling; this
  /// image is then unchanged.
  void draw(const NSImage& source, const CGRect& from, const CGRect& into);

  /// The pixels, at their own number and without alpha, as a JPEG file. `compressionFactor` runs
  /// from 0.0, the smallest file, to 1.0, the best picture. Absent without a bitmap, if a side is
  /// over 65,500 pixels, or if memory is short. The image keeps the last file until it is
  /// drawn into, so that who looks at its size before sending the image encodes no second time.
  [[nodiscard]] std::optional<Data> jpegRepresentation(float compressionFactor) const;

  /// The pixels exactly as they are as a PNG file. Absent without a bitmap, if a side is over
  /// 1,000,000 pixels, or if memory is short.
  [[nodiscard]] std::optional<Data> pngRepresentation() const;

  /// Closed to others, who call one of the above.
  NSImage(Private, const CGSize& size, std::optional<Bitmap> bitmap);

 private:
  struct JPEG {
    float compressionFactor;
    Data file;
  };

  /// A region in logical units from the bottom left, in pixels from the top left.
  [[nodiscard]] CGRect inPixels(const CGRect& region) const;

  [[nodiscard]] std::shared_ptr<const JPEG> lastJPEG() const TARNWICK_EXCLUDES(jpegLock_);
  void keepJPEG(std::shared_ptr<const JPEG> jpeg) const TARNWICK_EXCLUDES(jpegLock_);

  const CGSize createdSize_;
  CGSize size_;
  ResizingMode resizingMode_ = ResizingMode::stretch;
  std::optional<Bitmap> bitmap_;

  mutable Mutex jpegLock_;  // readers on several threads may be the first to encode
  mutable std::shared_ptr<const JPEG> lastJPEG_ TARNWICK_GUARDED_BY(jpegLock_);
};

}  // namespace tarnwick
