#pragma once

#include <stdexcept>

namespace program {

/// Something that the user can mend; the text says how.
struct Trouble : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace program
