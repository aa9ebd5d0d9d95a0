#pragma once

#include <stdexcept>

namespace program {

/// An error that the user can correct; the text says how.
struct Trouble : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace program
