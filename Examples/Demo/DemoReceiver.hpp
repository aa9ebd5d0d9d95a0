#pragma once

#include <sys/types.h>

#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "Demo/DemoReport.hpp"

namespace demo {

/// The whole of the receiving process: saves the pictures that come to `port` as PNG files in
/// `directory` and reports each on standard output, until standard input ends. Returns the exit
/// status.
int receivePictures(std::uint16_t port, const std::filesystem::path& directory);

/// The receiving process as the one that started it sees it. It ends with this object, and with the
/// process that holds it, however that ends.
class ReceiverProcess {
 public:
  /// Runs `program`, which is this one, as a receiver. Its log lines are shown when `isVerbose`.
  /// Throws std::system_error.
  ReceiverProcess(const std::string& program, std::uint16_t port,
                  const std::filesystem::path& directory, bool isVerbose);
  ~ReceiverProcess();
  ReceiverProcess(const ReceiverProcess&) = delete;
  ReceiverProcess& operator=(const ReceiverProcess&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }

  /// What the process says next; absent when it says nothing before the deadline, or never more.
  [[nodiscard]] std::optional<std::string> nextMessage(Clock::time_point deadline);
  [[nodiscard]] std::optional<Report> nextReport(Clock::time_point deadline);

  /// Ends the process. Returns what went wrong with it, empty when nothing did.
  std::string end();

 private:
  [[nodiscard]] std::optional<std::string> nextLine(Clock::time_point deadline);
  [[nodiscard]] bool readMore(Clock::time_point deadline);

  const std::uint16_t port_;
  const bool isVerbose_;
  pid_t process_ = -1;  // -1 when it has ended
  int input_ = -1;      // what it reads: nothing ever, but the end of it means the end
  int output_ = -1;     // what it writes
  std::string unread_;  // the beginning of its next line
};

/// Starts a receiver on a free port and waits until it listens. Throws std::runtime_error when none
/// comes up.
[[nodiscard]] std::unique_ptr<ReceiverProcess> startReceiver(const std::string& program,
                                                             const std::filesystem::path& directory,
                                                             bool isVerbose);

}  // namespace demo
