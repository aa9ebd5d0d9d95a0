// Any datagram is classified by each receiver: a text without a field is the only one that stops
// it.
#include <Tarnwick/Tarnwick.hpp>
#include <algorithm>
#include <cstdlib>

using namespace tarnwick;

namespace {

template <typename Receiver>
void check(const Data& datagram) {
  const RxMessage message = Receiver::classify(datagram);
  // Whatever is kept of a datagram is kept unchanged, and no parameter is empty.
  if (message.payload && *message.payload != datagram) std::abort();
  if (!message.params) return;
  const auto isEmpty = [](const std::string& param) { return param.empty(); };
  if (std::any_of(message.params->begin(), message.params->end(), isEmpty)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const Data datagram(bytes, bytes + size);
  const auto isSeparator = [](std::uint8_t byte) { return byte == '|' || byte == '~'; };
  if (std::all_of(datagram.begin(), datagram.end(), isSeparator)) return 0;
  check<RxVideoUDP>(datagram);
  check<RxImageUDP>(datagram);
  check<RxAudioUDP>(datagram);
  return 0;
}
