// Sends a picture, a JPEG or PNG file, to a receiver on port 5000: sender ADDRESS FILE
#include <Tarnwick/Tarnwick.hpp>
#include <chrono>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("usage: sender ADDRESS FILE");
  std::ifstream file(argv[2], std::ios::binary);
  if (!file) throw std::runtime_error(std::string(argv[2]) + " cannot be read");
  auto image = tarnwick::NSImage::fromData({std::istreambuf_iterator<char>(file), {}});
  if (!image) throw std::runtime_error(std::string(argv[2]) + " is no picture");

  constexpr int chunkSize = 1400;  // bytes a datagram; about 1,000 datagrams leave a second
  auto sender = tarnwick::TxImageUDP::create("picture", argv[1], 5000, chunkSize);
  sender->beginOperation();
  // Encoded here to know how long sending takes; the image keeps the file for the sender.
  const auto datagrams = image->jpegRepresentation(0.8F).value().size() / chunkSize;
  sender->send(image, {}, 1, true, 0.8F);
  // What does not fit one datagram leaves while something is queued behind it: a corner is enough.
  const tarnwick::CGRect corner{{0, 0}, {16, 16}};
  sender->send(tarnwick::crop(*image, corner), corner, 2, false, 0.8F);
  std::this_thread::sleep_for(std::chrono::milliseconds(500 + 2 * datagrams));
  sender->endOperation();  // drops what has not left by now
} catch (const std::exception& error) {
  std::cerr << "sender: " << error.what() << "\n";
  return 1;
}
