#include <png.h>

#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <string_view>

#include "Tarnwick/Platform/ImageCodec.hpp"

namespace tarnwick {
namespace {

/// libpng's simplified interface (libpng-manual.txt, section V). The destructor frees its memory.
struct Image : png_image {
  Image() : png_image{} {
    version = PNG_IMAGE_VERSION;
    format = PNG_FORMAT_BGRA;
  }
  ~Image() { png_image_free(this); }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
};

/// The chunks of a PNG file that its pixels depend on.
struct Chunks {
  Data copy;                     // the file without other chunks; empty if it has only these
  std::size_t pictureBytes = 0;  // compressed
};

/// Absent if the chunks end before the end chunk. libpng does not notice that: it stops reading
/// after the last row. Other chunks, such as text and colour profiles, are left out because libpng
/// inflates them to 1,000 times their size.
std::optional<Chunks> pictureChunks(const Data& file) {
  constexpr std::array<std::string_view, 8> neededKinds{"IHDR", "PLTE", "tRNS", "gAMA",
                                                        "cHRM", "sRGB", "IDAT", "IEND"};
  constexpr std::size_t signatureSize = 8, wordSize = 4, emptyChunkSize = 3 * wordSize;
  constexpr char ancillaryBit = 0x20;
  Chunks chunks;
  std::size_t position = signatureSize;
  while (file.size() >= position + emptyChunkSize) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < wordSize; ++i) length = length << 8 | file[position + i];
    if (length > file.size() - position - emptyChunkSize) return std::nullopt;
    const std::string_view kind = characters(file).substr(position + wordSize, wordSize);
    const bool isNeeded =
        std::find(neededKinds.begin(), neededKinds.end(), kind) != neededKinds.end();
    if (!isNeeded && (kind.front() & ancillaryBit) == 0) return std::nullopt;
    const auto begin = file.begin() + static_cast<std::ptrdiff_t>(position);
    if (!isNeeded && chunks.copy.empty()) chunks.copy.assign(file.begin(), begin);
    position += emptyChunkSize + length;
    if (isNeeded && !chunks.copy.empty()) {
      chunks.copy.insert(chunks.copy.end(), begin,
                         file.begin() + static_cast<std::ptrdiff_t>(position));
    }
    if (kind == "IDAT") chunks.pictureBytes += length;
    if (kind == "IEND") return chunks;
  }
  return std::nullopt;
}

/// Whether `pictureBytes` are enough for the pixels that the header announces, at one bit per pixel
/// and the best ratio of deflate (zlib technical details: 1032 to 1).
bool canHoldPixels(std::size_t pictureBytes, const Image& image) {
  constexpr std::size_t bestRatio = 1032, bitsPerByte = 8;
  return pictureBytes * bestRatio * bitsPerByte >= std::size_t{image.width} * image.height;
}

}  // namespace

std::optional<Bitmap> ImageCodec::decodePNG(const Data& file) try {
  const std::optional<Chunks> chunks = pictureChunks(file);
  if (!chunks) return std::nullopt;
  const Data& picture = chunks->copy.empty() ? file : chunks->copy;
  Image image;
  if (!png_image_begin_read_from_memory(&image, picture.data(), picture.size()) ||
      !isWithinPixelLimit(image.width, image.height) ||
      !canHoldPixels(chunks->pictureBytes, image)) {
    return std::nullopt;
  }
  image.format = PNG_FORMAT_BGRA;
  Bitmap bitmap{image.width, image.height, Data(PNG_IMAGE_SIZE(image))};
  if (!png_image_finish_read(&image, nullptr, bitmap.pixels.data(), 0, nullptr)) {
    return std::nullopt;
  }
  return bitmap;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

std::optional<Data> ImageCodec::encodePNG(const Bitmap& bitmap) try {
  Image image;
  image.width = static_cast<png_uint_32>(bitmap.width);
  image.height = static_cast<png_uint_32>(bitmap.height);
  Data file(PNG_IMAGE_PNG_SIZE_MAX(image));
  png_alloc_size_t size = file.size();
  if (!png_image_write_to_memory(&image, file.data(), &size, 0, bitmap.pixels.data(), 0, nullptr)) {
    return std::nullopt;
  }
  file.resize(size);
  return file;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

}  // namespace tarnwick
