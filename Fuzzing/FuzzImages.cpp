// Decodes any bytes. Decoding at once and in strips must give the same result. An image must have
// all of its pixels, and it must be possible to encode it.
#include <Tarnwick/Platform/ImageCodec.hpp>
#include <Tarnwick/Tarnwick.hpp>

using namespace tarnwick;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const Data file(bytes, bytes + size);
  const auto whole = ImageCodec::decodeJPEG(file, 1), strips = ImageCodec::decodeJPEG(file, 3);
  if (whole.has_value() != strips.has_value()) std::abort();
  if (whole && whole->pixels != strips->pixels) std::abort();
  const auto image = NSImage::fromData(file);
  if (!image) return 0;
  const Bitmap* bitmap = image->bitmap();
  if (bitmap == nullptr ||
      bitmap->pixels.size() != bitmap->rowBytes() * static_cast<std::size_t>(bitmap->height)) {
    std::abort();
  }
  if (image->size().width < 1000 && !image->jpegRepresentation(0.5F)) std::abort();
  return 0;
}
