#include "Tarnwick/Platform/ImageAveraging.hpp"

#include <algorithm>
#include <array>

namespace tarnwick {

Bitmap averaged(const Bitmap& source, std::int64_t across, std::int64_t down) {
  constexpr std::int64_t bytes = Bitmap::bytesPerPixel;
  Bitmap result{(source.width + across - 1) / across, (source.height + down - 1) / down, {}};
  result.pixels.reserve(static_cast<std::size_t>(result.width * result.height * bytes));
  for (std::int64_t y = 0; y < source.height; y += down) {
    for (std::int64_t x = 0; x < source.width; x += across) {
      const std::int64_t columns = std::min(across, source.width - x);
      const std::int64_t rows = std::min(down, source.height - y);
      std::array<std::int64_t, bytes> sums{};
      for (std::int64_t row = y; row < y + rows; ++row) {
        const std::uint8_t* pixel = source.row(row) + x * bytes;
        for (std::int64_t i = 0; i < columns; ++i, pixel += bytes) {
          const std::int64_t alpha = pixel[3];
          for (std::size_t channel = 0; channel < 3; ++channel) {
            sums[channel] += pixel[channel] * alpha;
          }
          sums[3] += alpha;
        }
      }
      const std::int64_t weight = std::max<std::int64_t>(sums[3], 1);
      for (std::size_t channel = 0; channel < 3; ++channel) {
        result.pixels.push_back(static_cast<std::uint8_t>((sums[channel] + weight / 2) / weight));
      }
      const std::int64_t pixels = columns * rows;
      result.pixels.push_back(static_cast<std::uint8_t>((sums[3] + pixels / 2) / pixels));
    }
  }
  return result;
}

}  // namespace tarnwick
