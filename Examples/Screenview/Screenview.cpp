// Shows the screen of another machine: screenview [--port 5000] [--fullscreen]
// Or saves it: screenview --save FILE.png [--after SECONDS]
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "Program/Arguments.hpp"
#include "Program/NewFile.hpp"
#include "Program/Program.hpp"
#include "Screenview/Picture.hpp"
#include "Screenview/Window.hpp"

namespace screenview {
namespace {

namespace fs = std::filesystem;

constexpr double longestWait = 86400;  // seconds

struct Options {
  std::uint16_t port = 5000;
  bool isFullScreen = false;
  std::optional<std::string> file;  // absent: show a window
  double after = 2;                 // seconds
};

std::shared_ptr<tarnwick::RxImageUDP> makeReceiver(std::uint16_t port,
                                                   std::shared_ptr<Picture> picture) try {
  return tarnwick::RxImageUDP::create("screenview", port, program::longestDatagram,
                                      std::move(picture));
} catch (const tarnwick::UDPError& error) {
  throw program::Trouble(program::adviceOn(error, port));
}

int showWindow(const Options& options) {
  // The interval at which the user's input is polled.
  constexpr int patience = 4;  // milliseconds

  const auto picture = std::make_shared<Picture>();
  const auto receiver = makeReceiver(options.port, picture);
  Window window(picture, options.port, options.isFullScreen);
  receiver->beginOperation();
  // SDL cannot wait for a descriptor, so its events are polled. An event loop that waits for
  // descriptors adds the queue's descriptor and needs no timeout.
  tarnwick::DispatchQueue& queue = tarnwick::DispatchQueue::main();
  pollfd blocks{.fd = queue.fileDescriptor(), .events = POLLIN, .revents = 0};
  while (window.handleEvents()) {
    if (poll(&blocks, 1, patience) > 0) queue.drain();
    window.show();
  }
  receiver->endOperation();
  return EXIT_SUCCESS;
}

[[noreturn]] void throwFileTrouble(const std::string& file, int error) {
  throw program::Trouble(file + " cannot be written: " + std::generic_category().message(error));
}

/// Returns the path to write to: `file` or, if it is a symbolic link, its target.
fs::path targetOf(const std::string& file) {
  std::error_code isMissing;
  const fs::path target = fs::canonical(file, isMissing);
  return isMissing ? fs::absolute(file) : target;
}

/// Throws at the start if `file` cannot be written. Changes nothing: an existing file stays
/// unchanged until there is a picture.
void checkWritable(const std::string& file) try {
  const fs::path target = targetOf(file);
  if (fs::is_directory(target)) throwFileTrouble(file, EISDIR);
  const bool isThere = fs::exists(target);
  if (isThere && access(target.c_str(), W_OK) != 0) throwFileTrouble(file, errno);
  if (isThere && !fs::is_regular_file(target)) return;  // a pipe, for example, is not replaced
  const program::NewFile probe(target.parent_path());
} catch (const std::system_error& error) {
  throwFileTrouble(file, error.code().value());
}

void write(const tarnwick::Data& bytes, const std::string& file) try {
  const fs::path target = targetOf(file);
  if (fs::exists(target) && !fs::is_regular_file(target)) {
    std::ofstream stream(target, std::ios::binary);
    if (!(stream << tarnwick::characters(bytes) << std::flush)) throwFileTrouble(file, errno);
    return;
  }
  program::NewFile picture(target.parent_path());
  picture.write(bytes);
  picture.moveOver(target);
} catch (const std::system_error& error) {
  throwFileTrouble(file, error.code().value());
}

int savePicture(const Options& options) {
  checkWritable(*options.file);
  const auto picture = std::make_shared<Picture>();
  const auto receiver = makeReceiver(options.port, picture);
  program::catchInterrupts();
  receiver->beginOperation();
  program::drainMainQueueUntil([&] {
    const Picture::Status status = picture->status();
    const std::chrono::duration<double> since = Clock::now() - status.first;
    return status.count > 0 && since.count() >= options.after;
  });
  receiver->endOperation();
  const auto image = picture->copy();
  if (!image) {
    throw program::Trouble("no picture came on port " + std::to_string(options.port) +
                           ", nothing is saved");
  }
  write(image->pngRepresentation().value(), *options.file);
  return EXIT_SUCCESS;
}

void describe(CLI::App& arguments, Options& options) {
  arguments.add_option("--port", options.port, "the UDP port to receive on")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  auto* fullScreen =
      arguments.add_flag("--fullscreen", options.isFullScreen, "start in full screen");
  auto* save = arguments
                   .add_option("--save", options.file,
                               "open no window, and write the picture to this PNG file")
                   ->excludes(fullScreen);
  arguments
      .add_option("--after", options.after,
                  "seconds from the first picture until --save writes; Ctrl-C writes at once")
      ->check(program::between(0.0, longestWait))
      ->needs(save)
      ->capture_default_str();
}

int view(const Options& options) {
  program::keepLogOffTerminal();
  return options.file ? savePicture(options) : showWindow(options);
}

}  // namespace
}  // namespace screenview

int main(int argc, char** argv) {
  constexpr auto description =
      "Shows what another machine sends of its screen. F11 or f: full screen and back. Escape or\n"
      "q: end. Exit status: 0 ended as asked, 1 something failed, 2 wrong usage.";
  return program::run("screenview", description, argc, argv, screenview::describe,
                      screenview::view);
}
