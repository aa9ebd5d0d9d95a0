#include "Tarnwick/RxStreamVideoOperation.hpp"

namespace tarnwick {

void RxStreamVideoOperation::main() {
  if (isCancelled()) {
    finish(true);
    return;
  }
  executing(true);
  frame_->mergeChunks();
  data = frame_->getData();
  frameID = frame_->getFrame();
  executing(false);
  finish(true);
}

}  // namespace tarnwick
