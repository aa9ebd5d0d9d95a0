// Sends video and audio files to another machine, and offers PINs.
#include <Tarnwick/Tarnwick.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <istream>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "Media/MotionJPEG.hpp"
#include "Media/PacedClient.hpp"
#include "Program/Arguments.hpp"
#include "Program/Input.hpp"
#include "Program/Program.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;
using media::PacedClient;
using program::Trouble;

struct Options {
  std::string address, file, pin;
  std::uint16_t imagePort = 5000, videoPort = 5001, audioPort = 5002;
  std::size_t chunk = 1400;  // the kernel's default receive buffer holds 92 of these
  double fps = 25;
  std::int64_t number = 1;
  int (*command)(const Options&) = nullptr;

  [[nodiscard]] Seconds interval() const { return Seconds(1 / fps); }
};

void say(const std::string& text) { std::cerr << "mediasend: " << text << "\n"; }

void expect(const std::optional<std::string>& answer, const std::string& wanted) {
  if (answer != wanted) say("warning: the receiver does not answer \"" + wanted + "\"");
}

int sendVideo(const Options& options) {
  program::Input input(options.file);
  std::istream file(&input);
  media::MotionJPEG video(file);
  std::optional<tarnwick::Data> frame = video.nextFrame();
  if (!frame) {
    throw Trouble(options.file +
                  " is no motion-JPEG file: give complete JPEG pictures, one after another");
  }
  PacedClient client(options.address, options.videoPort);
  program::catchInterrupts();  // so that an interrupted stream ends with "stop"
  expect(client.ask("start"), "video|started");
  const Clock::time_point start = Clock::now();
  std::int64_t count = 0;
  for (; frame && !program::isInterrupted(); frame = video.nextFrame()) {
    std::this_thread::sleep_until(start +
                                  std::chrono::round<Clock::duration>(count * options.interval()));
    client.send("videoframe|" + std::to_string(++count) + "|jpeg|" + std::to_string(frame->size()));
    client.sendPayload(tarnwick::characters(*frame), options.chunk, tarnwick::RxVideoUDP::classify);
  }
  const Seconds taken = Clock::now() - start;
  expect(client.ask("stop"), "video|stopped");
  if (video.skipped() > 0) {
    say("warning: skipped incomplete pictures: " + std::to_string(video.skipped()));
  }
  const Seconds planned = count * options.interval();
  constexpr double tolerance = 1.1;
  if (taken > tolerance * planned) {
    say("warning: slower than the frame rate; a larger --chunk, or smaller pictures, are faster");
  }
  std::ostringstream seconds;
  seconds << std::fixed << std::setprecision(1) << taken.count();
  say("sent frames: " + std::to_string(count) + ", in " + seconds.str() + " s");
  return EXIT_SUCCESS;
}

void requireSendable(const std::string& path, std::uintmax_t length) {
  constexpr std::uintmax_t most = 512 << 20;  // bytes
  if (length > most) throw Trouble(path + " is longer than 512 MB: send it in parts");
}

std::string loadedRecording(const std::string& path) {
  program::Input input(path);
  std::error_code isPipe;
  if (const auto length = std::filesystem::file_size(path, isPipe); !isPipe) {
    requireSendable(path, length);
  }
  std::string recording;
  const auto isTaken = [&](std::size_t count) {
    const std::size_t length = recording.size();
    recording.resize(length + count);
    const auto taken = input.sgetn(&recording[length], static_cast<std::streamsize>(count));
    recording.resize(length + static_cast<std::size_t>(taken));
    return recording.size() == length + count;
  };
  // Checks the header before it reads the rest, because the input may never end.
  constexpr std::size_t header = 12, step = std::size_t{1} << 20;  // bytes
  bool isLonger = isTaken(header);
  if (!recording.starts_with("RIFF") || recording.find("WAVE") != 8) {
    throw Trouble(path + " is no WAV file: give one that begins with RIFF and WAVE");
  }
  while (isLonger) {
    isLonger = isTaken(step);
    requireSendable(path, recording.size());
  }
  return recording;
}

int sendAudio(const Options& options) {
  const std::string recording = loadedRecording(options.file);
  PacedClient client(options.address, options.audioPort);
  client.send("recorded|" + std::to_string(options.number) + "|wav|" +
              std::to_string(recording.size()));
  client.sendPayload(recording, options.chunk, tarnwick::RxAudioUDP::classify);
  client.finish();
  say("sent " + std::to_string(recording.size()) + " bytes, which nobody acknowledges");
  return EXIT_SUCCESS;
}

int offerPin(const Options& options) {
  PacedClient client(options.address, options.imagePort);
  const std::optional<std::string> answer = client.ask("pin|" + options.pin);
  if (answer == "pin|ok") {
    say("the PIN is accepted");
    return EXIT_SUCCESS;
  }
  if (answer == "pin|rejected") throw Trouble("the PIN is rejected");
  throw Trouble("no answer: is there an image receiver at " + options.address + ", port " +
                std::to_string(options.imagePort) + "?");
}

std::string complaintAboutPin(const std::string& pin) {
  if (!pin.empty() && pin.find_first_of(tarnwick::fieldSeparators) == std::string::npos) return {};
  return R"(a PIN is not empty, and has neither "|" nor "~")";
}

void describe(CLI::App& arguments, Options& options) {
  arguments.require_subcommand(1);
  const auto add = [&](const char* name, const char* text, std::uint16_t& port,
                       int (*function)(const Options&)) {
    CLI::App* command = arguments.add_subcommand(name, text);
    command->callback([&options, function] { options.command = function; });
    command->add_option("ADDRESS", options.address, "The receiver's IPv4 address")
        ->required()
        ->check(program::isAddress());
    command->add_option("--port", port, "The receiver's port")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    return command;
  };
  const auto addFile = [&](CLI::App* command, const char* text) {
    command->add_option("FILE", options.file, text)->required();
    command->add_option("--chunk", options.chunk, "Longest datagram, in bytes")
        ->check(CLI::Range(std::int64_t{1}, program::longestDatagram))
        ->capture_default_str();
  };
  CLI::App* video =
      add("video", "Sends a motion-JPEG file as a video stream", options.videoPort, sendVideo);
  addFile(video, "JPEG pictures, one after another; - reads standard input");
  video->add_option("--fps", options.fps, "Frames a second")
      ->check(program::between(1.0, 1000.0))
      ->capture_default_str();
  CLI::App* audio = add("audio", "Sends a WAV file as a recording", options.audioPort, sendAudio);
  addFile(audio, "The recording; - reads standard input");
  audio->add_option("--number", options.number, "The recording's number")
      ->check(CLI::Range(std::int64_t{1}, std::numeric_limits<std::int64_t>::max()))
      ->capture_default_str();
  CLI::App* pin = add("pin", "Offers a PIN to an image receiver", options.imagePort, offerPin);
  pin->add_option("PIN", options.pin, "The PIN")->required()->check(complaintAboutPin);
}

int sendMedia(const Options& options) {
  program::keepLogOffTerminal();
  return options.command(options);
}

}  // namespace

int main(int argc, char** argv) {
  constexpr auto description =
      "Sends video and audio files to another machine, and offers PINs. Exit status: 0 all was\n"
      "sent, or the PIN is accepted; 1 something failed; 2 wrong usage.";
  return program::run("mediasend", description, argc, argv, describe, sendMedia);
}
