// Receives pictures of another machine's screen in a program with its own event loop. Enter saves
// the screen as a PNG file and ends the program: receivepictures PORT FILE
#include <poll.h>
#include <unistd.h>
#include <Tarnwick/Tarnwick.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>

using tarnwick::CGPoint, tarnwick::CGRect, tarnwick::CGSize, tarnwick::NSImage;

// [delegate]
/// The peer's screen, put together from what comes of it. Used on the event loop's thread only.
class Screen {
 public:
  void show(const std::shared_ptr<NSImage>& image, const std::optional<CGRect>& bounds) {
    if (!bounds) {
      picture_ = image;  // all of the screen; it is ours
    } else if (isPreview(image->size(), *bounds)) {
      if (!picture_ || picture_->size() != bounds->size) take(resize(*image, bounds->size));
    } else {
      draw(*image, *bounds);
    }
    std::cerr << (bounds ? "a region came\n" : "the screen came\n");
  }

  /// Null until something has come. What has not come yet is transparent.
  [[nodiscard]] std::shared_ptr<NSImage> picture() const { return picture_; }

 private:
  /// All of the screen, made small: it tells how large the screen is.
  static bool isPreview(const CGSize& size, const CGRect& bounds) {
    return bounds.origin == CGPoint{0, 0} &&
           (size.width < bounds.size.width || size.height < bounds.size.height);
  }

  void draw(const NSImage& image, CGRect place) {
    const CGSize old = picture_ ? picture_->size() : CGSize{};
    const CGSize size{std::max(old.width, place.origin.x + place.size.width),
                      std::max(old.height, place.origin.y + place.size.height)};
    if (size != old) {  // more of the screen than was known
      const auto larger = NSImage::create(size);
      if (picture_) larger->draw(*picture_, {{0, 0}, old}, {{0, size.height - old.height}, old});
      take(larger);
    }
    if (!picture_) return;
    // From the top left, and drawing counts from the bottom.
    place.origin.y = picture_->size().height - place.origin.y - place.size.height;
    picture_->draw(image, {{0, 0}, image.size()}, place);
  }

  /// Unless the rectangle was larger than any picture.
  void take(const std::shared_ptr<NSImage>& picture) {
    if (picture->bitmap() != nullptr) picture_ = picture;
  }

  std::shared_ptr<NSImage> picture_;
};

/// Hands pictures to the event loop. Kept by the receiver for ever, it does not keep the screen.
class Watcher : public tarnwick::RxImageUDPDelegate {
 public:
  explicit Watcher(std::weak_ptr<Screen> screen) : screen_(std::move(screen)) {}

 private:
  // Called on a thread of the receiver's.
  void imageReceived(std::shared_ptr<NSImage> image, std::optional<CGRect> bounds) override {
    tarnwick::DispatchQueue::main().async([weak = screen_, image, bounds] {
      if (const auto screen = weak.lock()) screen->show(image, bounds);  // if it is still there
    });
  }

  const std::weak_ptr<Screen> screen_;
};
// [delegate]

/// Parses a port number. Throws std::runtime_error if the text is not one.
std::uint16_t portNumber(const std::string& text) {
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  if (std::from_chars(text.data(), end, port).ptr != end || port == 0) {
    throw std::runtime_error(text + " is no port: give a number from 1 to 65535");
  }
  return port;
}

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("usage: receivepictures PORT FILE");
  // [loop]
  const auto port = portNumber(argv[1]);
  const auto screen = std::make_shared<Screen>();
  constexpr std::int64_t longestDatagram = 65500;  // in bytes; of longer ones the rest is cut off
  const auto receiver = tarnwick::RxImageUDP::create("screen", port, longestDatagram,
                                                     std::make_shared<Watcher>(screen));
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
