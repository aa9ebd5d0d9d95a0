// Any bytes are an image or none; an image is whole, and can be sent on.
#include <Tarnwick/Tarnwick.hpp>
#include <cstdlib>

using namespace tarnwick;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const auto image = NSImage::fromData(Data(bytes, bytes + size));
  if (!image) return 0;
  const Bitmap* bitmap = image->bitmap();
  if (bitmap == nullptr ||
      bitmap->pixels.size() != bitmap->rowBytes() * static_cast<std::size_t>(bitmap->height)) {
    std::abort();
  }
  if (image->size().width < 1000 && !image->jpegRepresentation(0.5F)) std::abort();
  return 0;
}
