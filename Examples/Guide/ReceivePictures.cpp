// Receives pictures of another machine's screen in a program that has an event loop of its own, and
// saves the screen as a PNG file at Enter: receivepictures PORT FILE
#include <poll.h>
#include <unistd.h>
#include <Tarnwick/Tarnwick.hpp>
#include <array>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

// [delegate]
/// The peer's screen, put together from what comes of it.
class Screen : public tarnwick::RxImageUDPDelegate {
 public:
  // Called on a thread of the receiver's; the rest is done on the event loop's, without a lock.
  void imageReceived(std::shared_ptr<tarnwick::NSImage> image,
                     std::optional<tarnwick::CGRect> bounds) override {
    tarnwick::DispatchQueue::main().async([this, image, bounds] { show(image, bounds); });
  }

  /// Null until all of it has come once.
  [[nodiscard]] std::shared_ptr<tarnwick::NSImage> picture() const { return picture_; }

 private:
  void show(const std::shared_ptr<tarnwick::NSImage>& image,
            const std::optional<tarnwick::CGRect>& bounds) {
    if (!bounds) {
      picture_ = image;  // all of the screen; it is ours
    } else if (picture_) {
      tarnwick::CGRect place = *bounds;  // from the top left, and drawing counts from the bottom
      place.origin.y = picture_->size().height - place.origin.y - place.size.height;
      picture_->draw(*image, {{0, 0}, image->size()}, place);
    }
    std::cerr << (bounds ? "a region came\n" : "the screen came\n");
  }

  std::shared_ptr<tarnwick::NSImage> picture_;
};
// [delegate]

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("usage: receivepictures PORT FILE");
  // [loop]
  const auto port = static_cast<std::uint16_t>(std::stoi(argv[1]));
  const auto screen = std::make_shared<Screen>();
  const auto receiver = tarnwick::RxImageUDP::create("screen", port, 65500, screen);
  receiver->beginOperation();

  tarnwick::DispatchQueue& queue = tarnwick::DispatchQueue::main();
  std::array<pollfd, 2> watched{{{queue.fileDescriptor(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
  for (;;) {
    if (poll(watched.data(), watched.size(), -1) == -1) continue;  // a signal came
    if (watched[0].revents != 0) queue.drain();                    // Tarnwick's part of the loop
    if (watched[1].revents != 0) break;                            // the program's own
  }
  receiver->endOperation();
  // [loop]
  if (!screen->picture()) throw std::runtime_error("nothing came");
  const tarnwick::Data file = screen->picture()->pngRepresentation().value();
  std::ofstream(argv[2], std::ios::binary) << tarnwick::characters(file);
} catch (const std::exception& error) {
  std::cerr << "receivepictures: " << error.what() << "\n";
  return 1;
}
