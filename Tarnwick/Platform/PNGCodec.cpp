#include <png.h>

#include <new>

#include "Tarnwick/Platform/ImageCodec.hpp"

namespace tarnwick {
namespace {

/// libpng's simplified interface (libpng-manual.txt, section V), released with the block.
struct Image : png_image {
  Image() : png_image{} {
    version = PNG_IMAGE_VERSION;
    format = PNG_FORMAT_BGRA;
  }
  ~Image() { png_image_free(this); }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
};

/// The bytes of picture data in `file`, whose chunks must run on to the end chunk; 0 when they do
/// not: the library itself stops reading with the last row, and takes such a file for a whole one.
std::size_t pictureBytes(const Data& file) {
  constexpr std::size_t signatureSize = 8, wordSize = 4, emptyChunkSize = 3 * wordSize;
  std::size_t position = signatureSize, pictureBytes = 0;
  while (file.size() - position >= emptyChunkSize) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < wordSize; ++i) length = length << 8 | file[position + i];
    const std::string_view kind = characters(file).substr(position + wordSize, wordSize);
    if (kind == "IEND") return pictureBytes;
    if (length > file.size() - position - emptyChunkSize) return 0;
    if (kind == "IDAT") pictureBytes += length;
    position += emptyChunkSize + length;
  }
  return 0;
}

/// Whether `file` has enough bytes for as many pixels as it announces, at one bit each and the most
/// that deflate can compress (zlib technical details: 1032 to 1).
bool canHoldPixels(const Data& file, const Image& image) {
  constexpr std::size_t bestRatio = 1032, bitsPerByte = 8;
  return pictureBytes(file) * bestRatio * bitsPerByte >= std::size_t{image.width} * image.height;
}

}  // namespace

std::optional<Bitmap> ImageCodec::decodePNG(const Data& file) try {
  Image image;
  if (!png_image_begin_read_from_memory(&image, file.data(), file.size())) return std::nullopt;
  if (!isWithinPixelLimit(image.width, image.height) || !canHoldPixels(file, image))
    return std::nullopt;
  image.format = PNG_FORMAT_BGRA;
  Bitmap bitmap{image.width, image.height, Data(PNG_IMAGE_SIZE(image))};
  if (!png_image_finish_read(&image, nullptr, bitmap.pixels.data(), 0, nullptr)) {
    return std::nullopt;
  }
  return bitmap;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

std::optional<Data> ImageCodec::encodePNG(const Bitmap& bitmap) {
  Image image;
  image.width = static_cast<png_uint_32>(bitmap.width);
  image.height = static_cast<png_uint_32>(bitmap.height);
  if (image.width != bitmap.width || image.height != bitmap.height) return std::nullopt;
  Data file(PNG_IMAGE_PNG_SIZE_MAX(image));
  png_alloc_size_t size = file.size();
  if (!png_image_write_to_memory(&image, file.data(), &size, 0, bitmap.pixels.data(), 0, nullptr)) {
    return std::nullopt;
  }
  file.resize(size);
  return file;
}

}  // namespace tarnwick
