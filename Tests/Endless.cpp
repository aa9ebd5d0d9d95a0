// endless send|receive PORT: sends images without end, or logs whether each arrives unaltered.

#include "Session.hpp"

using namespace tarnwick;
using namespace tarnwick::test;

void send(std::uint16_t port) {
  Source<RxImageUDP> source(port, 1400);
  for (std::int64_t number = 1;; ++number) {
    source.send(number);
    std::this_thread::sleep_for(std::chrono::milliseconds(source.milliseconds()));
  }
}

void receive(std::uint16_t port) {
  const auto arrivals = std::make_shared<Arrivals>();
  const auto receiver = RxImageUDP::create("receiver", port, 65500, arrivals);
  receiver->beginOperation();
  MainThread mainThread;
  for (;;) {
    const Object arrived = arrivals->objects.await(std::chrono::hours(24)).value();
    const Object sent = object<RxImageUDP>(std::atoll(arrived.label.c_str()));
    logLine(arrived == sent ? "whole" : "altered");
  }
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const auto port = static_cast<std::uint16_t>(std::atoi(argv[2]));
  std::string_view(argv[1]) == "send" ? send(port) : receive(port);
}
