#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <filesystem>

namespace program {

/// A file that appears at its place complete or not at all: it is written under another name in the
/// same directory, and then moved. What was there before is not touched until then, and a symbolic
/// link is never followed. Everything here throws std::system_error when the system refuses.
class NewFile {
 public:
  /// Creates an empty file in a directory.
  explicit NewFile(const std::filesystem::path& directory);

  /// Removes it, unless it was moved.
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// Writes all that the file holds. Call it once.
  void write(const tarnwick::Data& bytes);

  /// Moves it to a path in the same directory. It replaces a file that is there, and takes over who
  /// may read and write that.
  void moveOver(const std::filesystem::path& path);

  /// Moves it to a path in the same directory if nothing is there. Returns whether it did.
  [[nodiscard]] bool moveToFree(const std::filesystem::path& path);

 private:
  std::filesystem::path path_;  // empty when there is nothing left to remove
  int descriptor_ = -1;
};

}  // namespace program
