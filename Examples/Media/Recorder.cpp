#include "Media/Recorder.hpp"

#include <iomanip>
#include <iostream>
#include <sstream>
#include <system_error>
#include <utility>

#include "Program/NewFile.hpp"
#include "Program/Trouble.hpp"

namespace media {

void say(const std::string& line) { std::cerr << "mediareceive: " + line + "\n"; }

Recorder::Recorder(std::filesystem::path directory, Naming naming, std::int64_t most)
    : directory_(std::move(directory)), naming_(std::move(naming)), most_(most) {
  try {
    const program::NewFile probe(directory_);  // tries it: permissions are not conclusive
  } catch (const std::system_error& error) {
    throw program::Trouble("cannot write to " + directory_.string() + " (" +
                           error.code().message() +
                           "): give a directory that you may write to, or make one with mkdir");
  }
}

std::string Recorder::save(const tarnwick::Data& data) {
  const std::lock_guard lock(lock_);
  if (count_ >= most_ || !trouble_.empty()) return {};
  try {
    program::NewFile file(directory_);
    file.write(data);
    std::filesystem::path path = nextPath();
    while (!file.moveToFree(path)) path = nextPath();
    ++count_;
    return path.filename();
  } catch (const std::system_error& error) {
    trouble_ = "cannot write to " + directory_.string() + ": " + error.code().message();
    return {};
  }
}

bool Recorder::isDone() const {
  const std::lock_guard lock(lock_);
  return count_ >= most_ || !trouble_.empty();
}

std::int64_t Recorder::close() {
  const std::lock_guard lock(lock_);
  most_ = count_;
  if (!trouble_.empty()) throw program::Trouble(trouble_);
  return count_;
}

std::filesystem::path Recorder::nextPath() {
  std::ostringstream name;
  name << naming_.prefix << std::setw(naming_.digits) << std::setfill('0') << ++number_
       << naming_.suffix;
  return directory_ / name.str();
}

}  // namespace media
