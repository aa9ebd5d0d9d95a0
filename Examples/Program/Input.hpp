#pragma once

#include <array>
#include <streambuf>
#include <string>

namespace program {

/// A file that a std::istream reads from. It ends at an interrupt, too, so that a program which
/// waits for a pipe can be ended. For one thread.
class Input final : public std::streambuf {
 public:
  /// Opens a file; "-" is standard input. Throws Trouble when it cannot be read.
  explicit Input(const std::string& path);
  ~Input() override;
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

 private:
  int_type underflow() override;

  const int descriptor_;
  std::array<char, 65536> buffer_{};
};

}  // namespace program
