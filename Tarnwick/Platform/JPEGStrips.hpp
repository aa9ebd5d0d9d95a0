#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace tarnwick {

/// A JPEG file with a restart marker at each row of blocks can be made, and read, in strips at
/// once: nothing that is coded behind a marker depends on what stands before it (ITU-T T.81,
/// E.1.4). The markers count from 0 to 7 and over again, so that strips of whole groups of eight
/// rows of blocks need no other numbers.
inline constexpr std::int64_t blockRowsInGroup = 8;

/// Rows of pixels.
struct PixelRows {
  std::int64_t first = 0, count = 0;
};

/// The strips that `height` rows of pixels are made or read in, at most `most` of about the same
/// height, where a row of blocks has `blockHeight` rows of pixels.
[[nodiscard]] std::vector<PixelRows> strips(std::int64_t height, std::int64_t blockHeight,
                                            std::size_t most);

/// The file of which each of `files`, in order and all made alike, holds a strip: `height` rows of
/// pixels in all.
[[nodiscard]] Data joinedStrips(const std::vector<std::span<const std::uint8_t>>& files,
                                std::int64_t height);

/// A file that holds some rows of another one's, and the row of blocks behind them, unless it is
/// the last: a damage at the border shows in it as it would in the whole.
struct StripFile {
  PixelRows rows;
  bool isLast = false;
  Data file;
};

/// The strips of a file, at most `most`. None when it has to be read as a whole: it is progressive,
/// has no restart marker at each row of blocks, has headers longer than most pictures, or halves
/// its colour down, where a row of pixels depends on the next row of blocks; or it is damaged,
/// which reading it will say.
[[nodiscard]] std::vector<StripFile> cutIntoStrips(const Data& file, std::size_t most);

}  // namespace tarnwick
