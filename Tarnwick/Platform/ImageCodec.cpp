#include "Tarnwick/Platform/ImageCodec.hpp"

#include <algorithm>
#include <array>

namespace tarnwick {
namespace {

constexpr std::array<std::uint8_t, 3> jpegBeginning{0xFF, 0xD8, 0xFF};
constexpr std::array<std::uint8_t, 8> pngBeginning{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

template <std::size_t Size>
bool beginsWith(const Data& file, const std::array<std::uint8_t, Size>& beginning) {
  return file.size() >= Size && std::equal(beginning.begin(), beginning.end(), file.begin());
}

}  // namespace

std::optional<Bitmap> ImageCodec::decode(const Data& file) {
  if (beginsWith(file, jpegBeginning)) return decodeJPEG(file);
  if (beginsWith(file, pngBeginning)) return decodePNG(file);
  return std::nullopt;
}

}  // namespace tarnwick
