#pragma once

#include <algorithm>
#include <bit>
#include <bitset>
#include <cstdlib>
#include <string>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace tarnwick::test {

/// `file` with `count` more bytes from `position` on.
inline Data stuffed(Data file, std::size_t position, std::size_t count) {
  file.insert(file.begin() + static_cast<std::ptrdiff_t>(position), count, 0x5A);
  return file;
}

/// The place of the header segment of a JPEG file that has this marker.
inline std::size_t segment(const Data& file, int marker) {
  std::size_t position = 2;
  while (file.at(position + 1) != marker) {
    position += std::size_t{2} + file.at(position + 2) * std::size_t{256} + file.at(position + 3);
  }
  return position;
}

/// A plain-coloured JPEG file of one sample a component, written segment by segment: of one scan
/// or, when `scans` says how many, a progressive one, which is complete from one more scan than it
/// has components. `front` are the segments before all others.
inline Data plainJPEG(const std::vector<int>& samples, int width, int height, int scans = 0,
                      const std::vector<int>& front = {}) {
  const int count = static_cast<int>(samples.size()), frame = scans > 0 ? 0xC2 : 0xC0;
  std::vector<int> file{0xFF, 0xD8};
  const auto add = [&](const std::vector<int>& more) {
    file.insert(file.end(), more.begin(), more.end());
  };
  add(front);
  add({0xFF, 0xDB, 0, 67, 0});
  add(std::vector<int>(64, 8));
  // Codes of four bits for the lengths 0 to 8 of a difference, and of one for a block's end.
  add({0xFF, 0xC4, 0, 28, 0, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  add({0, 1, 2, 3, 4, 5, 6, 7, 8});
  add({0xFF, 0xC4, 0, 20, 0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  add({0xFF, frame, 0, 8 + 3 * count, 8, height / 256, height % 256, width / 256, width % 256});
  add({count});
  for (int id = 1; id <= count; ++id) add({id, 0x11, 0});
  add({0xFF, 0xDA, 0, 6 + 2 * count, count});
  for (int id = 1; id <= count; ++id) add({id, 0});
  add({0, scans > 0 ? 0 : 63, 0});
  std::string bits;
  for (const int sample : samples) {
    const auto size = static_cast<unsigned>(std::abs(sample - 128));
    const auto length = static_cast<unsigned>(std::bit_width(size));
    const unsigned code = sample < 128 ? ~size : size;
    bits += std::bitset<4>(length).to_string();
    bits += std::bitset<8>(code).to_string().substr(8 - length) + (scans > 0 ? "" : "0");
  }
  // Blocks like the first are zeros.
  const int blocks = ((width + 7) / 8) * ((height + 7) / 8);
  const int others = count * (blocks - 1) * (scans > 0 ? 4 : 5);
  bits.append(static_cast<std::size_t>(others), '0');
  for (std::size_t i = 0; i < bits.size(); i += 8) {
    const std::string byte = (bits.substr(i, 8) + "0000000").substr(0, 8);
    file.push_back(static_cast<int>(std::bitset<8>(byte).to_ulong()));
  }
  int left = scans - 1;
  for (int id = 1; id <= count; ++id) {  // a coefficient a scan, then what is left of them in one
    const int parts = std::min(63, left - (count - id));
    for (int part = 1; part <= parts; ++part, --left) {
      add({0xFF, 0xDA, 0, 8, 1, id, 0, part, part < parts ? part : 63, 0});
      add(std::vector<int>(static_cast<std::size_t>(blocks / 8 + 1)));
    }
  }
  add({0xFF, 0xD9});
  return {file.begin(), file.end()};
}

}  // namespace tarnwick::test
