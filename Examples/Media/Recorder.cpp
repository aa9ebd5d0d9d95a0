#include "Media/Recorder.hpp"

#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <system_error>
#include <utility>

#include "Program/Program.hpp"

namespace media {
namespace {

/// Finds out by writing: permissions alone do not tell.
bool isWritable(const std::filesystem::path& directory) {
  const std::filesystem::path probe = directory / ".mediareceive";
  const bool isWritten = std::ofstream(probe).is_open();
  std::error_code ignored;
  std::filesystem::remove(probe, ignored);
  return isWritten;
}

}  // namespace

void say(const std::string& line) { std::cerr << "mediareceive: " + line + "\n"; }

Recorder::Recorder(std::filesystem::path directory, Naming naming, std::int64_t most)
    : directory_(std::move(directory)), naming_(std::move(naming)), most_(most) {
  std::error_code ignored;
  std::filesystem::create_directories(directory_, ignored);
  if (!isWritable(directory_)) {
    throw program::Trouble("cannot write to " + directory_.string() +
                           ": give a directory that you may write to, or one to be made");
  }
}

std::string Recorder::save(const tarnwick::Data& data) {
  const std::lock_guard lock(lock_);
  if (count_ >= most_ || !trouble_.empty()) return {};
  const std::filesystem::path path = nextPath();
  std::ofstream file(path, std::ios::binary);
  file << tarnwick::characters(data);
  file.close();
  if (!file) {
    trouble_ = "cannot write " + path.string() + ": is there room left?";
    return {};
  }
  ++count_;
  return path.filename();
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
  std::filesystem::path path;
  std::error_code ignored;
  do {
    std::ostringstream name;
    name << naming_.prefix << std::setw(naming_.digits) << std::setfill('0') << ++number_
         << naming_.suffix;
    path = directory_ / name.str();
  } while (std::filesystem::exists(path, ignored));
  return path;
}

}  // namespace media
