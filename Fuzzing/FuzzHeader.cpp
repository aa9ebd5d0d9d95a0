// Any rectangle that can be announced is the rectangle that the receiver reads, as far as 32 bits
// hold it.
#include <array>
#include <cstring>

#include "Tests/Stream.hpp"

using namespace tarnwick;
using namespace tarnwick::test;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t length) {
  std::uint32_t size = 0;
  std::array<double, 4> sides{};
  if (length != sizeof size + 1 + sizeof sides) return 0;
  std::memcpy(&size, input, sizeof size);
  std::memcpy(&sides, input + sizeof size + 1, sizeof sides);
  const bool isFullScreen = input[sizeof size] % 2 != 0;
  const auto isTooFar = [](double side) { return !(side >= -0x1p63 && side < 0x1p63); };
  if (!isFullScreen && std::ranges::any_of(sides, isTooFar)) return 0;  // stops the sender

  const ImagePacket packet(1, {{sides[0], sides[1]}, {sides[2], sides[3]}}, nullptr, isFullScreen);
  const Data datagram = bytes(TxStreamImageOperation::header(packet, size));
  if (stops<RxImageUDP>(datagram)) return 0;  // rounded up to what does not fit
  const auto params = RxImageUDP::classify(datagram).params.value();
  for (double& side : sides) side = std::trunc(static_cast<float>(std::trunc(side)));
  const CGRect rect{{sides[0], sides[1]}, {sides[2], sides[3]}};
  const auto expected = isFullScreen ? std::nullopt : std::optional(rect);
  const auto read = makeCGRect(std::vector(params.begin() + 1, params.end()));
  if (parseInteger(params[0]) != size || read != expected) std::abort();
  return 0;
}
