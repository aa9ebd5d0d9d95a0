#include "Tarnwick/RxStreamVideoOperation.hpp"

#include "Tarnwick/Platform/Memory.hpp"

namespace tarnwick {

void RxStreamVideoOperation::main() {
  if (isCancelled()) {
    finish(true);
    return;
  }
  executing(true);
  ifMemoryAllows([this] {
    frame_->mergeChunks();
    data = frame_->getData();
  });
  frameID = frame_->getFrame();
  executing(false);
  finish(true);
}

}  // namespace tarnwick
