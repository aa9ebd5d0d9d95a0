#pragma once

#include <cstddef>
#include <optional>

#include "Tarnwick/Platform/Bitmap.hpp"
#include "Tarnwick/Platform/Data.hpp"

namespace tarnwick {

/// The image file formats. Every function is pure and may run on any thread. Decoders return
/// complete pictures only: the result is absent if the file is damaged, truncated, of another
/// format or over the pixel limit, or if memory is short.
///
/// Measured cost of hostile files: one byte of PNG costs up to 33 kB of memory and 0.2 ms, one byte
/// of JPEG 3 kB and 6 us. At the pixel limit, a PNG costs 512 MB, and 6 s as a 1 MB file of 16-bit
/// samples. A JPEG costs 860 MB and 3 s. Progressive files are limited to 100 scans, 512 MB of
/// coefficients and 40,000,000 blocks over all scans: 10 for each block of the largest picture.
class ImageCodec final {
 public:
  ImageCodec() = delete;

  /// Decodes a JPEG or PNG file. Its first bytes tell which of them it is.
  [[nodiscard]] static std::optional<Bitmap> decode(const Data& file);

  /// Decodes JPEG (ITU-T T.81): grey, YCbCr, RGB, CMYK or YCCK, baseline or progressive.
  /// Orientation and density are ignored. Alpha is 255.
  [[nodiscard]] static std::optional<Bitmap> decodeJPEG(const Data& file);

  /// The same on at most `most` threads, with the same result. The default is one thread per
  /// processor, but at least 8,192 bytes per thread. Only baseline files with restart markers,
  /// full vertical colour resolution and at most three components are decoded on several threads.
  [[nodiscard]] static std::optional<Bitmap> decodeJPEG(const Data& file, std::size_t most);

  /// Encodes a baseline JPEG file without the bitmap's alpha. `compressionFactor` runs from 0.0
  /// (smallest file) to 1.0 (best quality). Values outside are clamped; NaN counts as 0.0. Absent
  /// if a side is over 65,500 pixels or memory is short.
  [[nodiscard]] static std::optional<Data> encodeJPEG(const Bitmap& bitmap,
                                                      float compressionFactor);

  /// The same on at most `most` threads, with the same result.
  [[nodiscard]] static std::optional<Data> encodeJPEG(const Bitmap& bitmap, float compressionFactor,
                                                      std::size_t most);

  /// Decodes PNG (ISO/IEC 15948) of any kind to 8-bit sRGB. Chunks that the pixels do not depend
  /// on, such as text, are skipped.
  [[nodiscard]] static std::optional<Bitmap> decodePNG(const Data& file);

  /// Encodes all pixels unchanged as a PNG file. Absent if a side is over 1,000,000 pixels, the
  /// limit of libpng, or if memory is short.
  [[nodiscard]] static std::optional<Data> encodePNG(const Bitmap& bitmap);
};

}  // namespace tarnwick
