// Sends a screen, first all of it and then its changes: sendscreen ADDRESS PORT
#include <Tarnwick/Tarnwick.hpp>
#include <charconv>
#include <chrono>
#include <cmath>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

using namespace std::chrono_literals;
using tarnwick::Bitmap, tarnwick::CGRect, tarnwick::NSImage, tarnwick::TxImageUDP;

// [sending]
constexpr std::size_t chunkSize = 1400;  // bytes a datagram
constexpr float quality = 0.6F;

std::size_t fileSize(const NSImage& image) {
  return image.jpegRepresentation(quality).value().size();  // the sender encodes no second time
}

/// Queues a picture, and returns how long to wait for it to leave: a datagram, of which the first
/// is the announcement, leaves each millisecond or, on a busy machine, a little later.
std::chrono::milliseconds send(TxImageUDP& sender, const std::shared_ptr<NSImage>& image,
                               const CGRect& area, bool isWhole) {
  static std::uint64_t count = 0;
  const std::size_t datagrams = 2 + fileSize(*image) / chunkSize;
  sender.send(image, area, ++count, isWhole, quality);
  return 2ms * datagrams;
}

/// Sends all of the screen. What does not fit one datagram leaves while something is queued behind
/// it, for which a corner is enough.
void sendWhole(TxImageUDP& sender, const std::shared_ptr<NSImage>& screen) {
  const CGRect corner{{0, 0}, {16, 16}};
  const auto time = send(sender, screen, {}, true);
  std::this_thread::sleep_for(time + send(sender, tarnwick::crop(*screen, corner), corner, false));
}

/// Sends a region of the screen, halved until each piece fits one datagram: that leaves at once.
void sendRegion(TxImageUDP& sender, const NSImage& screen, const CGRect& area) {
  const auto image = tarnwick::crop(screen, area);
  if (fileSize(*image) <= chunkSize) {
    std::this_thread::sleep_for(send(sender, image, area, false));
    return;
  }
  CGRect first = area, second = area;
  if (area.size.width > area.size.height) {
    first.size.width = std::floor(area.size.width / 2);
    second.origin.x += first.size.width;
    second.size.width -= first.size.width;
  } else {
    first.size.height = std::floor(area.size.height / 2);
    second.origin.y += first.size.height;
    second.size.height -= first.size.height;
  }
  sendRegion(sender, screen, first);
  sendRegion(sender, screen, second);
}
// [sending]

/// Replaces the system's screen capture: draws a bar that falls over a shaded background.
std::shared_ptr<NSImage> grab(int time) {
  Bitmap screen{320, 180, tarnwick::Data(std::size_t{320} * 180 * Bitmap::bytesPerPixel, 255)};
  for (int y = 0; y < 180; ++y) {
    for (int x = 0; x < 320; ++x) {
      std::uint8_t* blueGreenRed = screen.row(y) + x * Bitmap::bytesPerPixel;
      blueGreenRed[0] = static_cast<std::uint8_t>(x * y);
      blueGreenRed[1] = y / 10 == time ? 220 : 90;
    }
  }
  return NSImage::fromBitmap(std::move(screen));
}

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
  if (argc != 3) throw std::runtime_error("usage: sendscreen ADDRESS PORT");
  // [main]
  const auto port = portNumber(argv[2]);
  const auto sender = TxImageUDP::create("screen", argv[1], port, chunkSize);
  sender->beginOperation();
  sendWhole(*sender, grab(0));
  for (int time = 1; time < 18; ++time) {
    const CGRect changed{{0, 10.0 * (time - 1)}, {320, 20}};  // where the bar was and is
    sendRegion(*sender, *grab(time), changed);
  }
  sender->endOperation();
  // [main]
} catch (const std::exception& error) {
  std::cerr << "sendscreen: " << error.what() << "\n";
  return 1;
}
