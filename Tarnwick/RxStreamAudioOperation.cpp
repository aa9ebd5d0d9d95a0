#include "Tarnwick/RxStreamAudioOperation.hpp"

namespace tarnwick {

void RxStreamAudioOperation::main() {
  if (isCancelled()) {
    finish(true);
    return;
  }
  executing(true);
  frame_->mergeChunks();
  data = frame_->getData();
  recorded = frame_->recorded;
  executing(false);
  finish(true);
}

}  // namespace tarnwick
