#include "Tarnwick/BaseStreamOperation.hpp"

namespace tarnwick {

void BaseStreamOperation::executing(bool value) {
  willChangeValue("isExecuting");
  executing_ = value;
  didChangeValue("isExecuting");
}

void BaseStreamOperation::finish(bool value) {
  willChangeValue("isFinished");
  finished_ = value;
  didChangeValue("isFinished");
}

}  // namespace tarnwick
