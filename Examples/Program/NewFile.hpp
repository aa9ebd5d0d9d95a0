#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <filesystem>

namespace program {

/// A file that appears complete or not at all. It is written under another name in the same
/// directory, and then moved. An existing file is unchanged until then, and no symbolic link is
/// written through. The constructor and the functions throw std::system_error if they fail.
class NewFile {
 public:
  /// Creates an empty file in a directory.
  explicit NewFile(const std::filesystem::path& directory);

  /// Removes the file unless it was moved.
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// Writes the whole content. Call it once.
  void write(const tarnwick::Data& bytes);

  /// Moves the file to a path in the same directory. Replaces an existing file and takes over its
  /// permissions.
  void moveOver(const std::filesystem::path& path);

  /// Moves the file to a path in the same directory unless that exists. Returns whether it did.
  [[nodiscard]] bool moveToFree(const std::filesystem::path& path);

 private:
  std::filesystem::path path_;  // empty after the move
  int descriptor_ = -1;
};

}  // namespace program
