#pragma once

#include <array>
#include <cstddef>
#include <new>

namespace tarnwick {

/// Holds one value for the rest of the process, so that threads that are still running after the
/// program's `main` has returned can use it. For function-local statics.
template <typename Value>
class NeverDestroyed {
 public:
  NeverDestroyed() { ::new (storage_.data()) Value; }
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;

  Value& operator*() { return *std::launder(reinterpret_cast<Value*>(storage_.data())); }

 private:
  alignas(Value) std::array<std::byte, sizeof(Value)> storage_;
};

}  // namespace tarnwick
