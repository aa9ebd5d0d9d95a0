// Receives video and audio from another machine and saves it.
#include <Tarnwick/Tarnwick.hpp>
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "Media/Recorder.hpp"
#include "Program/Arguments.hpp"
#include "Program/Program.hpp"

namespace {

using media::Recorder;
using media::say;

struct Options {
  std::string directory;
  std::uint16_t videoPort = 5001, audioPort = 5002;
  std::int64_t count = std::numeric_limits<std::int64_t>::max();
  int (*command)(const Options&) = nullptr;
};

/// Saves frames and reports which are missing.
class VideoRecorder : public tarnwick::RxVideoUDPDelegate {
 public:
  explicit VideoRecorder(std::shared_ptr<Recorder> recorder) : recorder_(std::move(recorder)) {}

  // Called on the receive thread, which reads no datagram until the call returns.
  void videoStarted() override {
    isNewStream_ = true;
    say("the stream starts");
  }
  void videoStopped() override { say("the stream stops"); }

  // Called on a thread of the receiver's operation queue, one call at a time.
  void videoFrameReceived(std::int64_t frameID, tarnwick::Data data) override {
    if (recorder_->save(data).empty()) return;
    if (isNewStream_.exchange(false) || frameID == 1) last_ = 0;
    reportMissing(last_ + 1, frameID - 1);
    last_ = std::max(last_, frameID);  // a frame may arrive twice or late
  }

  [[nodiscard]] std::int64_t missing() const { return missing_; }

 private:
  void reportMissing(std::int64_t first, std::int64_t last) {
    if (first > last) return;
    missing_ += last - first + 1;
    const std::string numbers = std::to_string(first) + " to " + std::to_string(last);
    say(first == last ? "missing frame " + std::to_string(first) : "missing frames " + numbers);
  }

  const std::shared_ptr<Recorder> recorder_;
  std::atomic<bool> isNewStream_ = false;
  std::int64_t last_ = 0;  // used by videoFrameReceived() only
  std::atomic<std::int64_t> missing_ = 0;
};

class AudioRecorder : public tarnwick::RxAudioUDPDelegate {
 public:
  explicit AudioRecorder(std::shared_ptr<Recorder> recorder) : recorder_(std::move(recorder)) {}

  void audioReceived(std::int64_t recorded, tarnwick::Data data) override {
    const std::string file = recorder_->save(data);
    if (file.empty()) return;
    say("recording " + std::to_string(recorded) + ": " + std::to_string(data.size()) +
        " bytes in " + file);
  }

 private:
  const std::shared_ptr<Recorder> recorder_;
};

/// Receives until the recorder is done or the user interrupts. Returns the number of saved objects.
template <typename Receiver>
std::int64_t receive(std::uint16_t port, const auto& delegate, Recorder& recorder) try {
  const auto receiver = Receiver::create("mediareceive", port, program::longestDatagram, delegate);
  program::catchInterrupts();
  receiver->beginOperation();
  say("receiving on port " + std::to_string(port) + "; Ctrl-C ends");
  program::drainMainQueueUntil([&recorder] { return recorder.isDone(); });
  receiver->endOperation();
  return recorder.close();
} catch (const tarnwick::UDPError& error) {
  throw program::Trouble(program::adviceOn(error, port));
}

int receiveVideo(const Options& options) {
  const auto recorder = std::make_shared<Recorder>(
      options.directory, media::Naming{"frame-", 6, ".jpg"}, options.count);
  const auto delegate = std::make_shared<VideoRecorder>(recorder);
  const std::int64_t count = receive<tarnwick::RxVideoUDP>(options.videoPort, delegate, *recorder);
  say("saved frames: " + std::to_string(count) +
      ", missing: " + std::to_string(delegate->missing()));
  return EXIT_SUCCESS;
}

int receiveAudio(const Options& options) {
  const auto recorder = std::make_shared<Recorder>(
      options.directory, media::Naming{"recording-", 4, ".wav"}, options.count);
  const std::int64_t count = receive<tarnwick::RxAudioUDP>(
      options.audioPort, std::make_shared<AudioRecorder>(recorder), *recorder);
  say("saved recordings: " + std::to_string(count));
  return EXIT_SUCCESS;
}

void describe(CLI::App& arguments, Options& options) {
  arguments.require_subcommand(1);
  const auto add = [&](const char* name, const char* text, std::uint16_t& port,
                       int (*function)(const Options&)) {
    CLI::App* command = arguments.add_subcommand(name, text);
    command->callback([&options, function] { options.command = function; });
    command->add_option("DIRECTORY", options.directory, "Where the files go")->required();
    command->add_option("--port", port, "The port to receive on")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    command->add_option("--count", options.count, "End after so many; else at Ctrl-C")
        ->check(CLI::Range(std::int64_t{1}, options.count));
  };
  add("video", "Saves the frames of video streams", options.videoPort, receiveVideo);
  add("audio", "Saves recordings", options.audioPort, receiveAudio);
}

int receiveMedia(const Options& options) {
  program::keepLogOffTerminal();
  return options.command(options);
}

}  // namespace

int main(int argc, char** argv) {
  constexpr auto description =
      "Receives video and audio of another machine and saves it: one file for each frame or\n"
      "recording. Exit status: 0 ended as asked, 1 something failed, 2 wrong usage.";
  return program::run("mediareceive", description, argc, argv, describe, receiveMedia);
}
