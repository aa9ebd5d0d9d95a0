#pragma once

#include <array>
#include <streambuf>
#include <string>

namespace program {

/// A file for a std::istream to read from. An interrupt ends it, so that a program that waits for a
/// pipe can be ended. For one thread.
class Input final : public std::streambuf {
 public:
  /// Opens a file; "-" is standard input. Throws Trouble if it cannot be read.
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
