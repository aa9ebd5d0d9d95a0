#include "Tarnwick/Platform/JPEGStrips.hpp"

#include <algorithm>
#include <cstring>

namespace tarnwick {
namespace {

// ITU-T T.81, table B.1.
constexpr std::uint8_t markerBegin = 0xFF, frameHeader = 0xC0, huffmanTables = 0xC4,
                       firstRestart = 0xD0, lastRestart = 0xD7, endOfImage = 0xD9,
                       scanHeader = 0xDA, quantisationTables = 0xDB, restartInterval = 0xDD,
                       firstApplication = 0xE0, lastApplication = 0xEF, comment = 0xFE;
constexpr std::size_t markerSize = 2;

std::int64_t ceilingOf(std::int64_t dividend, std::int64_t divisor) {
  return (dividend + divisor - 1) / divisor;
}

/// A baseline file's headers, as far as strips need them.
struct Layout {
  std::size_t heightAt = 0;  // two bytes of the frame header, the high one first
  std::size_t scanAt = 0;    // the first byte behind the scan header; 0 when there is none
  std::int64_t width = 0, height = 0, interval = 0;
  std::size_t componentCount = 0;
  int across = 1, down = 1;  // the largest sampling factors
};

class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> file) : file_(file) {}

  /// The two bytes at a place as a number; 0 behind the end.
  [[nodiscard]] std::size_t number(std::size_t at) const {
    return at + 1 < file_.size() ? std::size_t{file_[at]} << 8 | file_[at + 1] : 0;
  }
  [[nodiscard]] int byte(std::size_t at) const { return at < file_.size() ? file_[at] : 0; }

 private:
  const std::span<const std::uint8_t> file_;
};

bool isPlain(int marker) {
  return marker == huffmanTables || marker == quantisationTables || marker == comment ||
         (marker >= firstApplication && marker <= lastApplication);
}

/// One that has no scan when the file is of another kind than strips can be cut from.
Layout layoutOf(std::span<const std::uint8_t> file) {
  const Reader reader(file);
  Layout layout;
  for (std::size_t at = markerSize; at < file.size();) {
    const std::size_t length = reader.number(at + 2);
    if (reader.byte(at) != markerBegin || length < 2) return {};
    const int marker = reader.byte(at + 1);
    if (marker == frameHeader && layout.heightAt == 0) {
      layout.heightAt = at + 5;
      layout.height = static_cast<std::int64_t>(reader.number(at + 5));
      layout.width = static_cast<std::int64_t>(reader.number(at + 7));
      layout.componentCount = static_cast<std::size_t>(reader.byte(at + 9));
      for (std::size_t i = 0; i < layout.componentCount; ++i) {
        const int sampling = reader.byte(at + 11 + 3 * i);
        layout.across = std::max(layout.across, sampling >> 4);
        layout.down = std::max(layout.down, sampling & 0xF);
      }
    } else if (marker == restartInterval) {
      layout.interval = static_cast<std::int64_t>(reader.number(at + 4));
    } else if (marker == scanHeader) {
      const bool isAll = reader.byte(at + 4) == static_cast<int>(layout.componentCount);
      if (layout.heightAt != 0 && isAll) layout.scanAt = at + markerSize + length;
      return layout;
    } else if (!isPlain(marker)) {
      return {};
    }
    at += markerSize + length;
  }
  return {};
}

void setHeight(Data& file, const Layout& layout, std::int64_t height) {
  file[layout.heightAt] = static_cast<std::uint8_t>(height >> 8);
  file[layout.heightAt + 1] = static_cast<std::uint8_t>(height);
}

/// Where each row of blocks begins, and where the last one ends; none when the markers between them
/// are not in order.
std::vector<std::size_t> rowsOfBlocks(const Data& file, std::size_t scanAt) {
  std::vector<std::size_t> starts{scanAt};
  for (std::size_t at = scanAt;; at += markerSize) {
    const void* found =
        at < file.size() ? std::memchr(file.data() + at, markerBegin, file.size() - at) : nullptr;
    if (found == nullptr) return {};
    at = static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - file.data());
    const int marker = Reader(file).byte(at + 1);
    const auto count = static_cast<int>((starts.size() - 1) % blockRowsInGroup);
    if (marker == firstRestart + count) {
      starts.push_back(at + markerSize);
    } else if (marker == endOfImage) {
      starts.push_back(at + markerSize);
      return starts;
    } else if (marker != 0) {  // which only stands for the byte before it
      return {};
    }
  }
}

}  // namespace

std::vector<PixelRows> strips(std::int64_t height, std::int64_t blockHeight, std::size_t most) {
  const std::int64_t groupHeight = blockRowsInGroup * blockHeight;
  const std::int64_t groups = ceilingOf(height, groupHeight);
  const std::int64_t rows = ceilingOf(groups, static_cast<std::int64_t>(most)) * groupHeight;
  std::vector<PixelRows> result;
  std::int64_t first = 0;
  do {
    result.push_back({first, std::min(rows, height - first)});
  } while ((first += rows) < height);
  return result;
}

Data joinedStrips(const std::vector<std::span<const std::uint8_t>>& files, std::int64_t height) {
  const Layout layout = layoutOf(files.front());
  Data joined(files.front().begin(), files.front().end());
  setHeight(joined, layout, height);
  for (std::size_t i = 1; i < files.size(); ++i) {
    // In place of the end marker: the last restart marker of a group, and the next strip's scan.
    joined.end()[-2] = markerBegin;
    joined.end()[-1] = lastRestart;
    joined.insert(joined.end(), files[i].begin() + static_cast<std::ptrdiff_t>(layout.scanAt),
                  files[i].end());
  }
  return joined;
}

std::vector<StripFile> cutIntoStrips(const Data& file, std::size_t most) {
  constexpr std::int64_t blockSide = 8, leastBlocksInByte = 4;  // a block takes two bits or more
  constexpr std::size_t longestHeaders = 65536;                 // which each strip has a copy of
  const Layout layout = layoutOf(file);
  const std::int64_t across = layout.componentCount == 1 ? 1 : layout.across;
  const std::int64_t unitsInRow = ceilingOf(layout.width, blockSide * across);
  if (layout.scanAt == 0 || layout.scanAt > longestHeaders) return {};
  if (layout.down != 1 || layout.interval != unitsInRow) return {};
  const std::vector<std::size_t> starts = rowsOfBlocks(file, layout.scanAt);
  const std::int64_t rowCount = ceilingOf(layout.height, blockSide);
  if (rowCount == 0 || std::ssize(starts) != rowCount + 1) return {};
  const auto scanSize = static_cast<std::int64_t>(starts.back() - layout.scanAt);
  if (unitsInRow * rowCount > scanSize * leastBlocksInByte) return {};

  std::vector<StripFile> result;
  for (const PixelRows& rows : strips(layout.height, blockSide, most)) {
    const std::int64_t end = rows.first + rows.count;
    const std::int64_t rest = std::min(blockSide, layout.height - end);  // behind it, if any
    const auto from = starts[static_cast<std::size_t>(rows.first / blockSide)];
    const auto to = starts[static_cast<std::size_t>(ceilingOf(end + rest, blockSide))];
    StripFile strip{
        rows, rest == 0, {file.begin(), file.begin() + static_cast<std::ptrdiff_t>(layout.scanAt)}};
    setHeight(strip.file, layout, rows.count + rest);
    strip.file.insert(strip.file.end(), file.begin() + static_cast<std::ptrdiff_t>(from),
                      file.begin() + static_cast<std::ptrdiff_t>(to));
    if (!strip.isLast) {
      // In place of the marker behind it. The library looks for bytes too many when it looks for a
      // marker, which it does behind a comment.
      constexpr std::uint8_t ending[]{markerBegin, comment, 0, 2, markerBegin, endOfImage};
      strip.file.resize(strip.file.size() - markerSize);
      strip.file.insert(strip.file.end(), std::begin(ending), std::end(ending));
    }
    result.push_back(std::move(strip));
  }
  return result;
}

}  // namespace tarnwick
