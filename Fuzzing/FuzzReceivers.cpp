// Plays a script of datagrams, separated by empty lines, on each receiver. Only a documented cause
// may stop the process, and the delegate must receive exactly the objects of a simple model.
// Seeds must not end in a newline that an editor adds: it would be part of the last datagram.
#include "Tests/Stream.hpp"

using namespace tarnwick;
using namespace tarnwick::test;

template <typename Receiver>
void hear(Receiver& receiver, Data datagram) {
  const RxMessage message = Receiver::classify(datagram);
  if (message.payload && *message.payload != datagram) std::abort();
  const auto reply = receiver.handleMessage(message.payload, message.params, message.response);
  const bool isStart = message.response == RxResponse::Start && isVideo<Receiver>;
  const bool isStop = message.response == RxResponse::Stop && isVideo<Receiver>;
  const bool isAnswered = isStart || isStop || message.response == RxResponse::Pin;
  if (reply.has_value() != isAnswered) std::abort();
}

template <typename Receiver>
void play(std::string_view script) {
  static const auto arrivals = std::make_shared<Arrivals>();
  static const auto receiver = Receiver::create("fuzzed", 0, 65500, arrivals);
  Model<Receiver> model;
  std::vector<Object> expected;
  for (std::size_t end = 0; end != std::string_view::npos; script.remove_prefix(end + 2)) {
    end = script.find("\n\n");
    const Data datagram = bytes(script.substr(0, end));
    if (stops<Receiver>(datagram)) break;
    if (auto object = model.hear(datagram)) expected.push_back(std::move(*object));
    hear(*receiver, datagram);
    if (end == std::string_view::npos) break;
  }
  // A complete object at the end leaves no object in progress for the next script.
  for (const Data& datagram :
       {bytes(announcement<Receiver>(-7, smallFile().size())), smallFile()}) {
    if (auto object = model.hear(datagram)) expected.push_back(std::move(*object));
    hear(*receiver, datagram);
  }
  DispatchQueue::main().drain();
  // Starts and stops of a video are delivered at once, before any frame.
  std::stable_partition(expected.begin(), expected.end(), [](const Object& object) {
    return object.label == "started" || object.label == "stopped";
  });
  for (const Object& object : expected) {
    if (arrivals->objects.await() != object) std::abort();
  }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size) {
  const std::string_view script(reinterpret_cast<const char*>(input), size);
  play<RxVideoUDP>(script);
  play<RxImageUDP>(script);
  play<RxAudioUDP>(script);
  return 0;
}
