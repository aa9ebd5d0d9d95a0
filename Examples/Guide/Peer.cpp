// Sends a JPEG file to a video receiver as a frame, with a plain socket: peer ADDRESS PORT FILE
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>

// [peer]
/// The way to one receiver.
class Peer {
 public:
  Peer(const char* address, std::uint16_t port) : socket_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in receiver{};
    receiver.sin_family = AF_INET;
    receiver.sin_port = htons(port);
    if (inet_aton(address, &receiver.sin_addr) == 0 ||
        connect(socket_, reinterpret_cast<const sockaddr*>(&receiver), sizeof receiver) == -1) {
      throw std::runtime_error("no way to that address");
    }
  }
  ~Peer() { close(socket_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  /// One datagram, and a little time for the receiver to take it.
  void send(const std::string& bytes) const {
    if (::send(socket_, bytes.data(), bytes.size(), 0) == -1) throw std::runtime_error("not sent");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  /// The answer to a message; empty when none comes within a second.
  [[nodiscard]] std::string ask(const std::string& message) const {
    send(message);
    std::string answer(100, '\0');
    pollfd readable{socket_, POLLIN, 0};
    const bool isAnswered = poll(&readable, 1, 1000) > 0;
    const ssize_t length = isAnswered ? recv(socket_, answer.data(), answer.size(), 0) : 0;
    return answer.substr(0, length > 0 ? static_cast<std::size_t>(length) : 0);
  }

 private:
  const int socket_;
};

void sendFrame(const Peer& peer, int number, const std::string& file) {
  constexpr std::size_t chunk = 1400;
  peer.send("videoframe|" + std::to_string(number) + "|jpeg|" + std::to_string(file.size()));
  for (std::size_t sent = 0; sent < file.size(); sent += chunk) {
    peer.send(file.substr(sent, chunk));
  }
}
// [peer]

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
  if (argc != 4) throw std::runtime_error("usage: peer ADDRESS PORT FILE");
  std::ifstream input(argv[3], std::ios::binary);
  const std::string file(std::istreambuf_iterator<char>(input), {});
  // [main]
  const Peer peer(argv[1], portNumber(argv[2]));
  if (peer.ask("start") != "video|started") throw std::runtime_error("nobody receives there");
  sendFrame(peer, 1, file);
  if (peer.ask("stop") != "video|stopped") throw std::runtime_error("nobody receives any more");
  // [main]
} catch (const std::exception& error) {
  std::cerr << "peer: " << error.what() << "\n";
  return 1;
}
