// Receives images of another machine's screen on port 5000 and says what came.
#include <Tarnwick/Tarnwick.hpp>
#include <iostream>

class Watcher : public tarnwick::RxImageUDPDelegate {
  // Called on a thread of the receiver's own.
  void imageReceived(std::shared_ptr<tarnwick::NSImage> image,
                     std::optional<tarnwick::CGRect> bounds) override {
    std::cout << (bounds ? "region " : "screen ") << image->size().width << " x "
              << image->size().height << std::endl;
  }
};

int main() try {
  constexpr int longestDatagram = 65500;  // in bytes; of longer ones the rest is cut off
  auto receiver =
      tarnwick::RxImageUDP::create("screen", 5000, longestDatagram, std::make_shared<Watcher>());
  receiver->beginOperation();
  tarnwick::DispatchQueue::main().run();  // hands complete images over, for ever
} catch (const std::exception& error) {
  std::cerr << "receiver: " << error.what() << "\n";
  return 1;
}
