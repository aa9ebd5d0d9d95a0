#include "Tarnwick/RxStreamAudioOperation.hpp"

#include "Tarnwick/Platform/Memory.hpp"

namespace tarnwick {

void RxStreamAudioOperation::main() {
  if (isCancelled()) {
    finish(true);
    return;
  }
  executing(true);
  ifMemoryAllows([this] {
    frame_->mergeChunks();
    data = frame_->getData();
  });
  recorded = frame_->recorded;
  executing(false);
  finish(true);
}

}  // namespace tarnwick
