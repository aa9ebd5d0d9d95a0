#include "Tarnwick/TxStreamImageOperation.hpp"

#include <string>

#include "Tarnwick/Platform/Arithmetic.hpp"
#include "Tarnwick/Platform/FatalError.hpp"
#include "Tarnwick/Platform/Log.hpp"
#include "Tarnwick/Platform/Memory.hpp"
#include "Tarnwick/Platform/Text.hpp"

namespace tarnwick {
namespace {

/// Returns the image as a JPEG file; absent if the encoding fails. The caller must pass an image
/// with a bitmap.
std::optional<Data> encoded(const std::shared_ptr<NSImage>& image, float compression) {
  if (!image || !image->bitmap()) {
    fatalError("Unexpectedly found nil while unwrapping an Optional value");
  }
  return image->jpegRepresentation(compression);
}

}  // namespace

std::string TxStreamImageOperation::header(const ImagePacket& image, std::size_t size) {
  std::string announcement = "Size|" + std::to_string(size);
  if (image.fullScreen) return announcement;
  announcement += "|Rect|";
  const auto& [origin, extent] = image.rect;
  for (const CGFloat value : {origin.x, origin.y, extent.width, extent.height}) {
    announcement += '~' + std::to_string(truncated(value));
  }
  return announcement;
}

void TxStreamImageOperation::main() {
  if (isCancelled()) {
    finish(true);
    return;
  }
  executing(true);
  ifMemoryAllows([this] {
    std::optional<Data> file = encoded(packet.image, compression);
    if (!file) return;
    client->send(header(packet, file->size()));
    const float kilobytes = static_cast<float>(file->size()) / 1024;
    // The header is queued, so the file must follow even if there is no memory to log this line.
    ifMemoryAllows([&] { logLine("sending " + shortestDecimal(kilobytes) + "k image"); });
    client->send(std::move(*file));
  });
  executing(false);
  finish(true);
}

}  // namespace tarnwick
