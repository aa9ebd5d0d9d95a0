// Sends a picture, a JPEG or PNG file, to a receiver on port 5000: sender ADDRESS FILE
#include <Tarnwick/Tarnwick.hpp>
#include <fstream>
#include <iostream>
#include <iterator>

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("usage: sender ADDRESS FILE");
  std::ifstream file(argv[2], std::ios::binary);
  auto image = tarnwick::NSImage::fromData({std::istreambuf_iterator<char>(file), {}});
  if (!image) throw std::runtime_error(std::string(argv[2]) + " is no picture");

  auto sender = tarnwick::TxImageUDP::create("picture", argv[1], 5000, 65500);
  sender->beginOperation();
  sender->send(image, {}, 1, true, 0.8F);
  // What does not fit one datagram leaves while something is queued behind it: a corner is enough.
  const tarnwick::CGRect corner{{0, 0}, {16, 16}};
  sender->send(tarnwick::crop(*image, corner), corner, 2, false, 0.8F);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  sender->endOperation();
} catch (const std::exception& error) {
  std::cerr << "sender: " << error.what() << "\n";
  return 1;
}
