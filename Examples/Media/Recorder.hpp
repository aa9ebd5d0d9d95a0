#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>

namespace media {

/// Says a line on standard error.
void say(const std::string& line);

/// How files are named: prefix, number with leading zeros, suffix.
struct Naming {
  std::string prefix;
  int digits;
  std::string suffix;
};

/// Saves what was received as numbered files of a directory. It replaces no file: a number that is
/// taken is passed over. A file appears when it is complete. Any thread may call any member.
class Recorder {
 public:
  /// Saves at most `most` files. Throws Trouble when the directory is missing or not writable.
  Recorder(std::filesystem::path directory, Naming naming, std::int64_t most);

  /// Returns the file's name; it is empty when no more is wanted, or the file cannot be written.
  std::string save(const tarnwick::Data& data);

  /// Whether there is nothing more to save: all are there, or one could not be written.
  [[nodiscard]] bool isDone() const;

  /// Waits for the file that is being written, and saves no more. Returns how many there are.
  /// Throws Trouble when one could not be written.
  std::int64_t close();

 private:
  std::filesystem::path nextPath();

  const std::filesystem::path directory_;  // fixed after construction
  const Naming naming_;

  mutable std::mutex lock_;  // guards all that follows
  std::int64_t most_;
  std::int64_t number_ = 0;  // of the last file
  std::int64_t count_ = 0;
  std::string trouble_;
};

}  // namespace media
