#include "Tarnwick/RxStreamImageOperation.hpp"

namespace tarnwick {

void RxStreamImageOperation::main() {
  if (isCancelled()) {
    finish(true);
    return;
  }
  executing(true);
  frame_->mergeChunks();
  if (const std::optional<Data> data = frame_->getData()) {
    image = NSImage::fromData(*data);
    bounds = frame_->bounds;
  }
  executing(false);
  finish(true);
}

}  // namespace tarnwick
