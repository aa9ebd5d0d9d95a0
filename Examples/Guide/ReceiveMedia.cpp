// Receives video and audio of another machine, and saves each frame and each recording as a file
// where it runs: receivemedia VIDEOPORT AUDIOPORT
#include <Tarnwick/Tarnwick.hpp>
#include <charconv>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

/// Saves what comes. The frames come on one thread and the recordings on another.
class Saver : public tarnwick::RxVideoUDPDelegate, public tarnwick::RxAudioUDPDelegate {
  // These two come on the receive thread, which waits: datagrams that come meanwhile may be lost.
  void videoStarted() override { std::cerr << "the video starts\n"; }
  void videoStopped() override { std::cerr << "the video stops\n"; }

  void videoFrameReceived(std::int64_t frameID, tarnwick::Data data) override {
    save("frame-" + std::to_string(frameID), data);
  }
  void audioReceived(std::int64_t recorded, tarnwick::Data data) override {
    save("recording-" + std::to_string(recorded), data);
  }

  static void save(const std::string& name, const tarnwick::Data& data) {
    std::ofstream(name, std::ios::binary) << tarnwick::characters(data);
    std::cerr << "saved " + name + "\n";
  }
};

/// A port's number. Throws when the text is none.
std::uint16_t portNumber(const std::string& text) {
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  if (std::from_chars(text.data(), end, port).ptr != end || port == 0) {
    throw std::runtime_error(text + " is no port: give a number from 1 to 65535");
  }
  return port;
}

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("usage: receivemedia VIDEOPORT AUDIOPORT");
  const auto saver = std::make_shared<Saver>();
  const auto video = tarnwick::RxVideoUDP::create("video", portNumber(argv[1]), 65500, saver);
  const auto audio = tarnwick::RxAudioUDP::create("audio", portNumber(argv[2]), 65500, saver);
  video->beginOperation();
  audio->beginOperation();
  tarnwick::DispatchQueue::main().run();  // hands complete objects over, for ever
} catch (const std::exception& error) {
  std::cerr << "receivemedia: " << error.what() << "\n";
  return 1;
}
