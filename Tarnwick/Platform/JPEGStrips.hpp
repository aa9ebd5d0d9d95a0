#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace tarnwick {

// A JPEG file with restart markers can be encoded and decoded in strips on several threads: the
// coded bytes after a marker do not depend on those before it (ITU-T T.81, E.1.4). The markers
// divide the scan into intervals of the same number of units. A unit is the area of one MCU. A
// strip must begin where both an interval and a row of units begin. This is the case once in every
// group of rows.

/// The number of units between two restart markers when we encode. It is 32 to 64, so that the
/// markers of flat and smooth pictures are less than 1,400 bytes apart. In this range, the number
/// with the smallest groups is used.
[[nodiscard]] std::int64_t restartInterval(std::int64_t unitsInRow);

/// The number of rows of units in a group.
[[nodiscard]] std::int64_t rowsInGroup(std::int64_t interval, std::int64_t unitsInRow);

/// Rows of pixels.
struct PixelRows {
  std::int64_t first = 0, count = 0;
};

/// Divides `height` rows of pixels into at most `most` strips of about the same height. Each strip
/// but the last consists of whole groups of `groupHeight` rows of pixels.
[[nodiscard]] std::vector<PixelRows> strips(std::int64_t height, std::int64_t groupHeight,
                                            std::size_t most);

/// Joins the files of all strips of a picture, in order, to one file of `height` rows of pixels.
/// All strips must have been encoded with the same settings.
[[nodiscard]] Data joinedStrips(const std::vector<std::span<const std::uint8_t>>& files,
                                std::int64_t height);

/// A file with some of the rows of another file. Unless it is the last strip, it also holds the
/// next row of units, so that decoding detects damage at the border as in the whole file. The last
/// interval of the strip's file may hold more units than its picture has.
struct StripFile {
  PixelRows rows;
  bool isLast = false;
  Data file;
};

/// Cuts a file into at most `most` strips. Returns fewer than two if the file must be decoded as a
/// whole: it is progressive, has too few restart markers, has headers of more than 64 kB, or halves
/// its colour vertically, where a row of pixels depends on the next row of units. A file with
/// damaged headers or markers is not cut either.
[[nodiscard]] std::vector<StripFile> cutIntoStrips(const Data& file, std::size_t most);

}  // namespace tarnwick
