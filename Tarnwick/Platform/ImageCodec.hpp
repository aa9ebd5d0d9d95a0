#pragma once

#include <cstddef>
#include <optional>

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Data.hpp"

namespace tarnwick {

/// The image file formats. Every function is pure and may run on any thread. A decoder gives
/// complete pictures only: bytes that are damaged, cut short, not of the format, over the pixel
/// limit or too much for the memory at hand are an absent result.
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

  /// The same, made by at most `most` threads at once, likewise.
  [[nodiscard]] static std::optional<Data> encodeJPEG(const Bitmap& bitmap, float compressionFactor,
                                                      std::size_t most);

  /// PNG (ISO/IEC 15948) of any kind, as 8-bit sRGB.
  [[nodiscard]] static std::optional<Bitmap> decodePNG(const Data& file);

  /// A PNG file with every pixel as it is. Absent when PNG cannot hold the sides.
  [[nodiscard]] static std::optional<Data> encodePNG(const Bitmap& bitmap);
};

}  // namespace tarnwick
