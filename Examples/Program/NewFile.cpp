#include "Program/NewFile.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>
#include <utility>

namespace program {
namespace {

[[noreturn]] void throwError() { throw std::system_error(errno, std::generic_category()); }

/// Creates a file. Returns -1 if the path exists, even as a symbolic link.
int create(const std::filesystem::path& path) {
  constexpr mode_t everybody = 0666;  // minus the process's umask
  const int descriptor =
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, everybody);
  if (descriptor == -1 && errno != EEXIST) throwError();
  return descriptor;
}

}  // namespace

NewFile::NewFile(const std::filesystem::path& directory) {
  static std::atomic<std::uint64_t> count = 0;
  while (descriptor_ == -1) {
    path_ = directory / (".new-" + std::to_string(getpid()) + '-' + std::to_string(++count));
    descriptor_ = create(path_);
  }
}

NewFile::~NewFile() {
  if (descriptor_ != -1) close(descriptor_);
  if (!path_.empty()) unlink(path_.c_str());
}

void NewFile::write(const tarnwick::Data& bytes) {
  for (std::size_t written = 0; written < bytes.size();) {
    const ssize_t count = ::write(descriptor_, bytes.data() + written, bytes.size() - written);
    if (count == -1 && errno != EINTR) throwError();
    if (count > 0) written += static_cast<std::size_t>(count);
  }
  // Some file systems report only here that the disk is full.
  if (close(std::exchange(descriptor_, -1)) == -1) throwError();
}

void NewFile::moveOver(const std::filesystem::path& path) {
  std::error_code isMissing;
  const std::filesystem::file_status replaced = std::filesystem::status(path, isMissing);
  if (exists(replaced)) std::filesystem::permissions(path_, replaced.permissions());
  std::filesystem::rename(path_, path);
  path_.clear();
}

bool NewFile::moveToFree(const std::filesystem::path& path) {
  const int place = create(path);  // an empty file, which reserves the path until it is replaced
  if (place == -1) return false;
  close(place);
  moveOver(path);
  return true;
}

}  // namespace program
