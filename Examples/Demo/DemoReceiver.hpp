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

/// Runs the receiving process: saves the pictures that arrive on `port` as PNG files in `directory`
/// and reports each on standard output. Returns the exit status when standard input ends.
int receivePictures(std::uint16_t port, const std::filesystem::path& directory);

/// Starts and controls the receiving process, which ends with this object. It also ends with the
/// process that started it, even if that is killed: its standard input ends then.
class ReceiverProcess {
 public:
  /// Starts `program`, this executable, as a receiver. Shows its log lines if `isVerbose`. Throws
  /// std::system_error.
  ReceiverProcess(const std::string& program, std::uint16_t port,
                  const std::filesystem::path& directory, bool isVerbose);
  ~ReceiverProcess();
  ReceiverProcess(const ReceiverProcess&) = delete;
  ReceiverProcess& operator=(const ReceiverProcess&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }

  /// Returns the next message, or nothing if the deadline passes or the output ends first.
  [[nodiscard]] std::optional<std::string> nextMessage(Clock::time_point deadline);
  [[nodiscard]] std::optional<Report> nextReport(Clock::time_point deadline);

  /// Ends the process. Returns how it failed, or an empty text if it did not.
  std::string end();

 private:
  [[nodiscard]] std::optional<std::string> nextLine(Clock::time_point deadline);
  [[nodiscard]] bool readMore(Clock::time_point deadline);

  const std::uint16_t port_;
  const bool isVerbose_;
  pid_t process_ = -1;  // -1 after its end
  int input_ = -1;      // its standard input: closing it ends the process
  int output_ = -1;     // its standard output
  std::string unread_;  // output that was read and not yet returned
};

/// Starts a receiver on a free port and waits until it listens. Throws std::runtime_error if it
/// does not start.
[[nodiscard]] std::unique_ptr<ReceiverProcess> startReceiver(const std::string& program,
                                                             const std::filesystem::path& directory,
                                                             bool isVerbose);

}  // namespace demo
