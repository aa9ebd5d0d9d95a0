#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string>

namespace media {

/// Prints a line on standard error.
void say(const std::string& line);

/// How files are named: prefix, number with leading zeros, suffix.
struct Naming {
  std::string prefix;
  int digits;
  std::string suffix;
};

/// Saves received objects as numbered files in a directory. Never replaces a file: skips numbers
/// that exist. A file appears when it is complete. Any thread may call any member.
class Recorder {
 public:
  /// Saves at most `most` files. Throws Trouble if the directory is missing or not writable.
  Recorder(std::filesystem::path directory, Naming naming, std::int64_t most);

  /// Saves a file. Returns its name, or "" if recording is over or the file cannot be written.
  std::string save(const tarnwick::Data& data);

  /// Whether recording is over: all files are saved, or one could not be written.
  [[nodiscard]] bool isDone() const;

  /// Waits for a file in progress and ends the recording. Returns the number of saved files. Throws
  /// Trouble if one could not be written.
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
