#include "Tarnwick/Platform/JPEGStrips.hpp"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace tarnwick {
namespace {

// ITU-T T.81, table B.1.
constexpr std::uint8_t markerBegin = 0xFF, frameHeader = 0xC0, huffmanTables = 0xC4,
                       firstRestart = 0xD0, endOfImage = 0xD9, scanHeader = 0xDA,
                       quantisationTables = 0xDB, restartInterval = 0xDD, firstApplication = 0xE0,
                       lastApplication = 0xEF, comment = 0xFE;
constexpr std::size_t markerSize = 2;

std::int64_t ceilingOf(std::int64_t dividend, std::int64_t divisor) {
  return (dividend + divisor - 1) / divisor;
}

/// A baseline file's headers, as far as strips need them.
struct Layout {
  std::size_t heightAt = 0;  // two bytes in the frame header, big-endian
  std::size_t scanAt = 0;    // the first byte after the scan header; 0 if there is none
  std::int64_t width = 0, height = 0, interval = 0;
  std::size_t componentCount = 0;
  int across = 1, down = 1;  // the largest sampling factors
};

class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> file) : file_(file) {}

  /// The big-endian number in the two bytes at `at`; 0 beyond the end.
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

/// Reads the headers. `scanAt` is 0 if strips cannot be cut from this kind of file.
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

/// The position of the next marker at or after `at`; the file's size if there is no marker.
std::size_t nextMarker(std::span<const std::uint8_t> file, std::size_t at) {
  while (at < file.size()) {
    const void* found = std::memchr(file.data() + at, markerBegin, file.size() - at);
    if (found == nullptr) break;
    at = static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - file.data());
    if (Reader(file).byte(at + 1) != 0) return at;  // 0 means that the 0xFF is data
    at += markerSize;
  }
  return file.size();
}

std::uint8_t restartMarker(std::size_t index) {
  constexpr std::size_t numbers = 8;
  return static_cast<std::uint8_t>(firstRestart + index % numbers);
}

/// The start of each restart interval, and the end of the last one, including the marker after it.
/// Empty if the restart markers are not in order.
std::vector<std::size_t> intervalStarts(const Data& file, std::size_t scanAt) {
  std::vector<std::size_t> starts{scanAt};
  for (;;) {
    const std::size_t at = nextMarker(file, starts.back());
    const int marker = Reader(file).byte(at + 1);
    const std::uint8_t expected = restartMarker(starts.size() - 1);
    starts.push_back(at + markerSize);
    if (marker == endOfImage) return starts;
    if (marker != expected) return {};
  }
}

/// Numbers the restart markers of a file in order.
void numberRestarts(Data& file, std::size_t scanAt) {
  std::size_t count = 0;
  for (std::size_t at = nextMarker(file, scanAt); file[at + 1] != endOfImage;
       at = nextMarker(file, at + markerSize)) {
    file[at + 1] = restartMarker(count++);
  }
}

}  // namespace

std::int64_t restartInterval(std::int64_t unitsInRow) {
  constexpr std::int64_t minimum = 32, maximum = 64;
  std::int64_t best = minimum;
  for (std::int64_t interval = minimum; interval <= maximum; ++interval) {
    if (rowsInGroup(interval, unitsInRow) <= rowsInGroup(best, unitsInRow)) best = interval;
  }
  return best;
}

std::int64_t rowsInGroup(std::int64_t interval, std::int64_t unitsInRow) {
  return interval / std::gcd(interval, unitsInRow);
}

std::vector<PixelRows> strips(std::int64_t height, std::int64_t groupHeight, std::size_t most) {
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
    joined.back() = firstRestart;  // replaces the end marker; numbered below
    joined.insert(joined.end(), files[i].begin() + static_cast<std::ptrdiff_t>(layout.scanAt),
                  files[i].end());
  }
  numberRestarts(joined, layout.scanAt);
  return joined;
}

std::vector<StripFile> cutIntoStrips(const Data& file, std::size_t most) {
  constexpr std::int64_t blockSide = 8, leastBlocksInByte = 4;  // a block has at least 2 bits
  constexpr std::size_t longestHeaders = 65536;                 // copied into each strip
  const Layout layout = layoutOf(file);
  const std::int64_t across = layout.componentCount == 1 ? 1 : layout.across;
  const std::int64_t unitsInRow = ceilingOf(layout.width, blockSide * across);
  const std::int64_t unitCount = unitsInRow * ceilingOf(layout.height, blockSide);
  if (layout.scanAt == 0 || layout.scanAt > longestHeaders) return {};
  if (layout.down != 1 || layout.interval == 0 || unitCount == 0) return {};
  const std::vector<std::size_t> starts = intervalStarts(file, layout.scanAt);
  if (std::ssize(starts) != ceilingOf(unitCount, layout.interval) + 1) return {};
  const auto scanSize = static_cast<std::int64_t>(starts.back() - layout.scanAt);
  if (unitCount > scanSize * leastBlocksInByte) return {};

  /// The first interval that begins at or after the row of units at `y`.
  const auto intervalAt = [&](std::int64_t y) {
    const std::int64_t units = std::min(ceilingOf(y, blockSide) * unitsInRow, unitCount);
    return static_cast<std::size_t>(ceilingOf(units, layout.interval));
  };
  const std::int64_t groupHeight = rowsInGroup(layout.interval, unitsInRow) * blockSide;
  std::vector<StripFile> result;
  for (const PixelRows& rows : strips(layout.height, groupHeight, most)) {
    const std::int64_t end = rows.first + rows.count;
    const std::int64_t rest = std::min(blockSide, layout.height - end);  // rows after the strip
    const std::size_t from = starts[intervalAt(rows.first)], to = starts[intervalAt(end + rest)];
    StripFile strip{
        rows, rest == 0, {file.begin(), file.begin() + static_cast<std::ptrdiff_t>(layout.scanAt)}};
    setHeight(strip.file, layout, rows.count + rest);
    strip.file.insert(strip.file.end(), file.begin() + static_cast<std::ptrdiff_t>(from),
                      file.begin() + static_cast<std::ptrdiff_t>(to));
    strip.file.back() = endOfImage;  // replaces the restart marker
    numberRestarts(strip.file, layout.scanAt);
    result.push_back(std::move(strip));
  }
  return result;
}

}  // namespace tarnwick
