#include "Program/Input.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Program/Program.hpp"

namespace program {
namespace {

constexpr int patience = 100;  // milliseconds between two checks for an interrupt

int opened(const std::string& path) {
  const int descriptor = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat file {};
  if (fstat(descriptor, &file) == 0 && !S_ISDIR(file.st_mode)) return descriptor;
  throw Trouble("cannot read " + path + ": give a file that exists and that you may read");
}

}  // namespace

Input::Input(const std::string& path) : descriptor_(opened(path)) {}

Input::~Input() { close(descriptor_); }

Input::int_type Input::underflow() {
  pollfd readable{.fd = descriptor_, .events = POLLIN, .revents = 0};
  do {
    if (isInterrupted()) return traits_type::eof();
  } while (poll(&readable, 1, patience) <= 0);
  const ssize_t count = read(descriptor_, buffer_.data(), buffer_.size());
  if (count <= 0) return traits_type::eof();
  setg(buffer_.data(), buffer_.data(), buffer_.data() + count);
  return traits_type::to_int_type(buffer_[0]);
}

}  // namespace program
