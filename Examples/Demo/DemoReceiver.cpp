#include "Demo/DemoReceiver.hpp"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill() is not in <csignal>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

#include "Program/Program.hpp"

namespace demo {
namespace {

using namespace std::chrono_literals;

constexpr auto startTime = 20s, endTime = 20s;  // generous: the machine may be busy

void say(const std::string& text) {
  // One call writes the whole line, so that no log line can interrupt it.
  std::puts((message::prefix + text).c_str());
  std::fflush(stdout);
}

class SaveOperation : public tarnwick::NSOperation {
 public:
  SaveOperation(std::shared_ptr<tarnwick::NSImage> image, Report report,
                std::filesystem::path directory)
      : image_(std::move(image)), report_(std::move(report)), directory_(std::move(directory)) {}

  void main() override {
    const std::optional<tarnwick::Data> png = image_->pngRepresentation();
    std::ofstream file(directory_ / report_.file, std::ios::binary);
    if (png) std::copy(png->begin(), png->end(), std::ostreambuf_iterator<char>(file));
    Report report = report_;
    if (!png || !file.flush()) report.file = "unsaved";
    say(textOf(report));
  }

 private:
  const std::shared_ptr<tarnwick::NSImage> image_;
  const Report report_;
  const std::filesystem::path directory_;
};

class Recorder : public tarnwick::RxImageUDPDelegate {
 public:
  explicit Recorder(std::filesystem::path directory) : directory_(std::move(directory)) {
    saving_.setMaxConcurrentOperationCount(1);  // keeps the reports in order
  }

  // Saves on another thread and returns at once: saving takes longer than the next picture needs to
  // arrive. Called on a thread of the receiver's operation queue, one call at a time.
  void imageReceived(std::shared_ptr<tarnwick::NSImage> image,
                     std::optional<tarnwick::CGRect> bounds) override {
    const Clock::time_point receivedAt = Clock::now();
    const std::int64_t number = ++count_, width = image->bitmap()->width,
                       height = image->bitmap()->height;
    const std::string file = "picture-" + std::to_string(number) + ".png";
    saving_.addOperation(std::make_shared<SaveOperation>(
        std::move(image), Report{number, receivedAt, bounds, width, height, file}, directory_));
  }

 private:
  const std::filesystem::path directory_;
  tarnwick::NSOperationQueue saving_;
  std::int64_t count_ = 0;  // used by imageReceived() only
};

void stopWhenInputEnds() {
  std::array<char, 64> ignored;
  ssize_t count = 0;
  do {
    count = read(STDIN_FILENO, ignored.data(), ignored.size());
  } while (count > 0 || (count == -1 && errno == EINTR));
  tarnwick::DispatchQueue::main().stop();
}

struct Pipe {
  int readEnd = -1, writeEnd = -1;
};

/// Creates a pipe. A child process inherits an end only as a duplicate that is made for it.
Pipe makePipe() {
  std::array<int, 2> ends;
  if (pipe(ends.data()) == -1) throw std::system_error(errno, std::generic_category(), "pipe");
  for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  return {ends[0], ends[1]};
}

/// Returns a UDP port that is free now. Another process may bind it a moment later.
std::uint16_t freePort() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  const int probe = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  const bool isBound = bind(probe, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
                       getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0;
  const std::error_code error(errno, std::generic_category());
  if (probe != -1) close(probe);
  if (!isBound) throw std::system_error(error, "no free port");
  return ntohs(address.sin_port);
}

}  // namespace

int receivePictures(std::uint16_t port, const std::filesystem::path& directory) try {
  auto receiver = tarnwick::RxImageUDP::create("receiver", port, program::longestDatagram,
                                               std::make_shared<Recorder>(directory));
  receiver->beginOperation();
  std::thread(stopWhenInputEnds).detach();
  say(message::ready);
  tarnwick::DispatchQueue::main().run();
  receiver->endOperation();
  return 0;
} catch (const tarnwick::UDPError& error) {
  if (error != tarnwick::UDPError::bindSocket) throw;
  say(message::portTaken);
  return 0;
}

ReceiverProcess::ReceiverProcess(const std::string& program, std::uint16_t port,
                                 const std::filesystem::path& directory, bool isVerbose)
    : port_(port), isVerbose_(isVerbose) {
  const Pipe input = makePipe(), output = makePipe();
  std::array<std::string, 5> words = {"demo", "--receive", std::to_string(port), "--output",
                                      directory.string()};
  std::array<char*, 6> arguments{};
  for (std::size_t i = 0; i < words.size(); ++i) arguments[i] = words[i].data();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.readEnd, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.writeEnd, STDOUT_FILENO);
  const int error =
      posix_spawnp(&process_, program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(input.readEnd);
  close(output.writeEnd);
  input_ = input.writeEnd;
  output_ = output.readEnd;
  if (error != 0) throw std::system_error(error, std::generic_category(), "receiver");
}

ReceiverProcess::~ReceiverProcess() {
  end();
  close(output_);
}

std::optional<std::string> ReceiverProcess::nextMessage(Clock::time_point deadline) {
  while (const std::optional<std::string> line = nextLine(deadline)) {
    if (line->starts_with(message::prefix)) return line->substr(message::prefix.size());
    if (isVerbose_) std::cout << "receiver: " << *line << std::endl;
  }
  return std::nullopt;
}

std::optional<Report> ReceiverProcess::nextReport(Clock::time_point deadline) {
  while (const std::optional<std::string> text = nextMessage(deadline)) {
    if (std::optional<Report> report = reportOf(*text)) return report;
  }
  return std::nullopt;
}

std::string ReceiverProcess::end() {
  if (process_ == -1) return {};
  close(input_);
  const Clock::time_point deadline = Clock::now() + endTime;
  while (nextMessage(deadline)) continue;
  if (Clock::now() >= deadline) kill(process_, SIGKILL);
  int status = 0;
  while (waitpid(process_, &status, 0) == -1 && errno == EINTR) continue;
  process_ = -1;
  if (WIFSIGNALED(status)) return "was ended by signal " + std::to_string(WTERMSIG(status));
  const int exitStatus = WEXITSTATUS(status);
  return exitStatus == 0 ? "" : "ended with status " + std::to_string(exitStatus);
}

std::optional<std::string> ReceiverProcess::nextLine(Clock::time_point deadline) {
  std::size_t end;
  while ((end = unread_.find('\n')) == std::string::npos) {
    if (!readMore(deadline)) return std::nullopt;
  }
  std::string line = unread_.substr(0, end);
  unread_.erase(0, end + 1);
  return line;
}

bool ReceiverProcess::readMore(Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd output{.fd = output_, .events = POLLIN, .revents = 0};
    const int ready = poll(&output, 1, static_cast<int>(std::max(left, 0ms).count()));
    if (ready == 0) return false;
    if (ready == -1 && errno == EINTR) continue;
    std::array<char, 4096> bytes;
    const ssize_t count = read(output_, bytes.data(), bytes.size());
    if (count == -1 && errno == EINTR) continue;
    if (count <= 0) return false;
    unread_.append(bytes.data(), static_cast<std::size_t>(count));
    return true;
  }
}

std::unique_ptr<ReceiverProcess> startReceiver(const std::string& program,
                                               const std::filesystem::path& directory,
                                               bool isVerbose) {
  constexpr int attempts = 10;
  for (int i = 0; i < attempts; ++i) {
    auto receiver = std::make_unique<ReceiverProcess>(program, freePort(), directory, isVerbose);
    const std::optional<std::string> answer = receiver->nextMessage(Clock::now() + startTime);
    if (answer == message::ready) return receiver;
    if (answer != message::portTaken) break;
  }
  throw std::runtime_error("the receiver does not start");
}

}  // namespace demo
