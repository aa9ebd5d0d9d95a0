#include "Tarnwick/RxStreamImageOperation.hpp"

#include "Tarnwick/Platform/Memory.hpp"

namespace tarnwick {

void RxStreamImageOperation::main() {
  if (isCancelled()) {
    finish(true);
    return;
  }
  executing(true);
  ifMemoryAllows([this] {
    frame_->mergeChunks();
    if (const std::optional<Data> data = frame_->getData()) {
      image = NSImage::fromData(*data);
      bounds = frame_->bounds;
    }
  });
  executing(false);
  finish(true);
}

}  // namespace tarnwick
