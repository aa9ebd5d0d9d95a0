// Any rectangle that can be announced is the rectangle that the receiver reads, as far as 32 bits
// hold it.
#include <cstring>

#include "Tests/Stream.hpp"

using namespace tarnwick;
using namespace tarnwick::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t length) {
  struct {
    std::uint32_t size;
    bool isFullScreen;
    double sides[4];
  } values{};
  if (length != sizeof values.size + 1 + sizeof values.sides) return 0;
  std::memcpy(&values.size, input, sizeof values.size);
  std::memcpy(&values.sides, input + sizeof values.size + 1, sizeof values.sides);
  values.isFullScreen = input[sizeof values.size] % 2 != 0;
  const auto& [size, isFullScreen, sides] = values;
  const auto isTooFar = [](double side) { return !(side >= -0x1p63 && side < 0x1p63); };
  if (!isFullScreen && std::any_of(sides, sides + 4, isTooFar)) return 0;  // stops the sender

  const ImagePacket packet(1, {{sides[0], sides[1]}, {sides[2], sides[3]}}, nullptr, isFullScreen);
  const Data datagram = bytes(TxStreamImageOperation::header(packet, size));
  const RxMessage message = RxImageUDP::classify(datagram);
  const std::vector<std::string> params = message.params.value();
  if (message.response != RxResponse::Size || parseInteger(params[0]) != size) std::abort();
  if (params.size() != (isFullScreen ? 1 : 5)) std::abort();
  if (isFullScreen || stops<RxImageUDP>(datagram)) return 0;  // rounded up to what does not fit
  const auto read = [](double side) {
    return std::trunc(static_cast<double>(static_cast<float>(std::trunc(side))));
  };
  const CGRect expected{{read(sides[0]), read(sides[1])}, {read(sides[2]), read(sides[3])}};
  if (makeCGRect(std::vector(params.begin() + 1, params.end())) != expected) std::abort();
  return 0;
}
