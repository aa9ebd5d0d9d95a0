#pragma once

#include <cstddef>
#include <optional>

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Data.hpp"

namespace tarnwick {

/// The image file formats. Every function is pure and may run on any thread. A decoder gives
/// complete pictures only: bytes that are damaged, cut short, not of the format, over the pixel
/// limit or too much for the memory at hand are an absent result.
///
/// What a hostile file can cost, as measured with files made for it: a byte of PNG 33 kB of memory
/// and 0.2 ms, a byte of JPEG 3 kB and 6 us. At the pixel limit, a PNG costs 512 MB and, at 1 MB of
/// 16-bit samples, 6 s; a JPEG 860 MB and 3 s. Progressive files are limited to 100 scans, 512 MB
/// of coefficients and 40,000,000 blocks over all scans, which is 10 scans of the largest picture.
class ImageCodec final {
 public:
  ImageCodec() = delete;

  /// The picture in a JPEG or PNG file, told apart by how the bytes begin.
  [[nodiscard]] static std::optional<Bitmap> decode(const Data& file);

  /// JPEG (ITU-T T.81): grey, YCbCr, RGB, CMYK or YCCK, baseline or progressive. Orientation and
  /// density are ignored; alpha is 255.
  [[nodiscard]] static std::optional<Bitmap> decodeJPEG(const Data& file);

  /// The same on at most `most` threads, with the same result. Without `most`, uses as many threads
  /// as there are processors, but one for a small file. Only a baseline file with restart markers
  /// and without colour that is halved down is decoded on several threads.
  [[nodiscard]] static std::optional<Bitmap> decodeJPEG(const Data& file, std::size_t most);

  /// A baseline JPEG file without the bitmap's alpha. `compressionFactor` runs from 0.0, the
  /// smallest file, to 1.0, the best picture; beyond, the nearer end holds, and not a number is
  /// 0.0. Absent when JPEG cannot hold the sides.
  [[nodiscard]] static std::optional<Data> encodeJPEG(const Bitmap& bitmap,
                                                      float compressionFactor);

  /// The same on at most `most` threads, with the same result.
  [[nodiscard]] static std::optional<Data> encodeJPEG(const Bitmap& bitmap, float compressionFactor,
                                                      std::size_t most);

  /// PNG (ISO/IEC 15948) of any kind, as 8-bit sRGB. Chunks that pixels do not depend on, such as
  /// text, are skipped.
  [[nodiscard]] static std::optional<Bitmap> decodePNG(const Data& file);

  /// A PNG file with every pixel as it is. Absent when a side is over 1,000,000 pixels, the limit
  /// of libpng.
  [[nodiscard]] static std::optional<Data> encodePNG(const Bitmap& bitmap);
};

}  // namespace tarnwick
