#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace tarnwick {

// A JPEG file with restart markers can be encoded and decoded in strips on several threads: the
// coded bytes behind a marker do not depend on those before it (ITU-T T.81, E.1.4). The markers
// divide the scan into intervals of the same number of units; a unit is what one MCU covers. A
// strip has to begin where an interval and a row of units begin together, which they do once in a
// group of rows.

/// The number of units between two restart markers of the files that we encode: 32 to 64, which
/// keeps the markers of flat and smooth pictures less than 1,400 bytes apart; of those, the number
/// that gives the smallest groups.
[[nodiscard]] std::int64_t restartInterval(std::int64_t unitsInRow);

/// The number of rows of units in a group.
[[nodiscard]] std::int64_t rowsInGroup(std::int64_t interval, std::int64_t unitsInRow);

/// Rows of pixels.
struct PixelRows {
  std::int64_t first = 0, count = 0;
};

/// Divides `height` rows of pixels into at most `most` strips of about the same height. All but the
/// last are whole groups of `groupHeight` rows of pixels.
[[nodiscard]] std::vector<PixelRows> strips(std::int64_t height, std::int64_t groupHeight,
                                            std::size_t most);

/// Joins the files of all strips of a picture, in order, to a file of `height` rows of pixels. All
/// strips must have been encoded with the same settings.
[[nodiscard]] Data joinedStrips(const std::vector<std::span<const std::uint8_t>>& files,
                                std::int64_t height);

/// A file with some rows of another file. Unless it is the last strip, it also holds the next row
/// of units, so that decoding it shows damage at the border as decoding the whole file does. The
/// file's last interval may hold more units than its picture has.
struct StripFile {
  PixelRows rows;
  bool isLast = false;
  Data file;
};

/// Cuts a file into at most `most` strips. Returns fewer than two when the file has to be decoded
/// as a whole: it is progressive, has no restart markers or too few, has headers of more than 64
/// kB, or halves its colour down, where a row of pixels depends on the next row of units. A file
/// with damaged headers or markers is not cut either.
[[nodiscard]] std::vector<StripFile> cutIntoStrips(const Data& file, std::size_t most);

}  // namespace tarnwick
