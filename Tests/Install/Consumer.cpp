// Sends an image to itself and exits with 0 if it arrives.
#include <Tarnwick/Tarnwick.hpp>
#include <iostream>
#include <semaphore>
#include <thread>

class Watcher : public tarnwick::RxImageUDPDelegate {
 public:
  bool await() { return arrived_.try_acquire_for(std::chrono::seconds(30)); }

 private:
  void imageReceived(std::shared_ptr<tarnwick::NSImage> image,
                     std::optional<tarnwick::CGRect> bounds) override {
    if (image->size() == tarnwick::CGSize{64, 48} && bounds) arrived_.release();
  }

  std::counting_semaphore<> arrived_{0};
};

auto receiverFor(const std::shared_ptr<Watcher>& watcher) {
  for (std::uint16_t port = 20000;; ++port) try {
      return std::pair(tarnwick::RxImageUDP::create("receiver", port, 65500, watcher), port);
    } catch (const tarnwick::UDPError& error) {  // thrown by the library
      if (error != tarnwick::UDPError::bindSocket || port == 65535) throw;
    }
}

int main() {
  const auto watcher = std::make_shared<Watcher>();
  const auto [receiver, port] = receiverFor(watcher);
  receiver->beginOperation();
  std::jthread mainThread([] { tarnwick::DispatchQueue::main().run(); });
  const auto sender = tarnwick::TxImageUDP::create("sender", "127.0.0.1", port, 65500);
  sender->beginOperation();
  const auto image = tarnwick::NSImage::create({64, 48});
  sender->send(image, {{1, 2}, {64, 48}}, 1, false, 0.8F);
  const bool arrived = watcher->await();
  sender->endOperation();
  receiver->endOperation();
  tarnwick::DispatchQueue::main().stop();
  std::cout << (arrived ? "arrived" : "lost") << std::endl;
  return arrived ? 0 : 1;
}
