#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Mailbox.hpp"

namespace tarnwick::test {

/// Takes standard output over for its lifetime and collects it line by line.
class Output {
 public:
  Output() : standardOutput_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    int ends[2];
    if (pipe(ends) == -1) std::abort();
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    reader_ = std::thread([this, end = ends[0]] { read(end); });
  }
  ~Output() {
    std::fflush(stdout);
    dup2(standardOutput_, STDOUT_FILENO);  // closes the pipe, which ends the reader
    close(standardOutput_);
    reader_.join();
    // What was taken is shown after all: the test's own messages are among it.
    while (const auto line = arriving_.await(std::chrono::milliseconds(0))) lines_.push_back(*line);
    for (const std::string& line : lines_) std::printf("%s\n", line.c_str());
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Waits for a line, word for word; false when the deadline has passed. What came before it is
  /// kept in lines().
  bool awaitLine(const std::string& expected) {
    while (auto line = arriving_.await()) {
      lines_.push_back(*line);
      if (*line == expected) return true;
    }
    return false;
  }

  /// The lines that awaitLine() has seen.
  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }

 private:
  void read(int end) {
    std::FILE* stream = fdopen(end, "r");
    std::string line;
    for (int c; (c = std::getc(stream)) != EOF;) {
      if (c != '\n') {
        line += static_cast<char>(c);
      } else {
        arriving_.put(std::exchange(line, {}));
      }
    }
    std::fclose(stream);
  }

  int standardOutput_;
  Mailbox<std::string> arriving_;
  std::vector<std::string> lines_;
  std::thread reader_;
};

}  // namespace tarnwick::test
