#include "Screenshare/ChangeMap.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace screenshare {
namespace {

int ceilDivide(int dividend, int divisor) { return (dividend + divisor - 1) / divisor; }

std::size_t index(int x, int y, int width) {
  return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
         static_cast<std::size_t>(x);
}

int countOf(const PixelRect& cells) { return cells.width * cells.height; }

/// Calls `visitor` with each cell of an area of a grid that is `width` cells wide.
template <typename Cells, typename Visitor>
void visit(Cells& grid, int width, const PixelRect& area, Visitor visitor) {
  for (int y = area.y; y < area.y + area.height; ++y) {
    for (int x = area.x; x < area.x + area.width; ++x) {
      visitor(grid[index(x, y, width)]);
    }
  }
}

/// Cuts an area across its longer side, after `position` cells.
std::pair<PixelRect, PixelRect> cut(const PixelRect& cells, int position) {
  const auto& [x, y, width, height] = cells;
  if (width >= height)
    return {{x, y, position, height}, {x + position, y, width - position, height}};
  return {{x, y, width, position}, {x, y + position, width, height - position}};
}

}  // namespace

ChangeMap::ChangeMap(int width, int height, std::size_t emptyFile)
    : picture_{0, 0, width, height},
      grid_{0, 0, ceilDivide(width, side), ceilDivide(height, side)},
      emptyFile_(static_cast<double>(emptyFile)),
      cells_(static_cast<std::size_t>(countOf(grid_))) {}

void ChangeMap::touch(const PixelRect& area, Time due) {
  visit(cells_, grid_.width, cellsOf(area),
        [due](Cell& cell) { cell.due = std::min(cell.due, due); });
}

PixelRect ChangeMap::box() const { return pixelsOf(dirtyBox(grid_)); }

std::vector<ChangeMap::Piece> ChangeMap::pieces(double limit) const {
  std::vector<Piece> result;
  addPieces(grid_, limit, result);
  std::stable_sort(result.begin(), result.end(),
                   [](const Piece& left, const Piece& right) { return left.due < right.due; });
  return result;
}

std::optional<std::pair<PixelRect, PixelRect>> ChangeMap::halves(const PixelRect& area) const {
  const PixelRect cells = cellsOf(area);
  if (countOf(cells) <= 1) return std::nullopt;
  const auto [first, second] = cut(cells, std::max(cells.width, cells.height) / 2);
  return std::pair(pixelsOf(first), pixelsOf(second));
}

void ChangeMap::learn(const PixelRect& area, std::size_t fileSize) {
  const PixelRect cells = cellsOf(area);
  const double content = std::max(0.0, static_cast<double>(fileSize) - emptyFile_);
  visit(cells_, grid_.width, cells,
        [bytes = content / countOf(cells)](Cell& cell) { cell.bytes = bytes; });
}

void ChangeMap::clear(const PixelRect& area) {
  visit(cells_, grid_.width, cellsOf(area), [](Cell& cell) { cell.due = never; });
}

/// Returns the cells that hold an area's pixels. Ignores pixels outside the picture.
PixelRect ChangeMap::cellsOf(const PixelRect& area) const {
  const PixelRect inside = area.intersection(picture_);
  if (inside.isEmpty()) return {};
  const int left = inside.x / side, top = inside.y / side;
  return {left, top, ceilDivide(inside.x + inside.width, side) - left,
          ceilDivide(inside.y + inside.height, side) - top};
}

PixelRect ChangeMap::pixelsOf(const PixelRect& cells) const {
  return PixelRect{cells.x * side, cells.y * side, cells.width * side, cells.height * side}
      .intersection(picture_);
}

PixelRect ChangeMap::dirtyBox(const PixelRect& cells) const {
  int left = cells.x + cells.width, top = cells.y + cells.height, right = 0, bottom = 0;
  for (int y = cells.y; y < cells.y + cells.height; ++y) {
    for (int x = cells.x; x < cells.x + cells.width; ++x) {
      if (cells_[index(x, y, grid_.width)].due == never) continue;
      left = std::min(left, x);
      right = std::max(right, x + 1);
      top = std::min(top, y);
      bottom = std::max(bottom, y + 1);
    }
  }
  return {left, top, right - left, bottom - top};
}

/// Adds the changed part of an area as one region if it is expected to fit and holds few unchanged
/// cells. Otherwise cuts it and adds both parts separately.
void ChangeMap::addPieces(const PixelRect& cells, double limit, std::vector<Piece>& pieces) const {
  const PixelRect box = dirtyBox(cells);
  if (box.isEmpty()) return;
  Time due = never;
  double content = 0;
  int idle = 0;
  visit(cells_, grid_.width, box, [&](const Cell& cell) {
    due = std::min(due, cell.due);
    content += cell.bytes;
    if (cell.due == never) ++idle;
  });
  const bool isWorthIt = idle <= idleCells || 2 * idle <= countOf(box);
  const double count = std::ceil(content / (limit - emptyFile_));  // of regions
  if ((isWorthIt && count <= 1) || countOf(box) == 1) {
    pieces.push_back({pixelsOf(box), due});
    return;
  }
  // The first part gets a whole number of full regions, so that few regions are half empty.
  const double share = std::max(1.0, std::floor(count / 2)) / std::max(2.0, count);
  const auto [first, second] = cut(box, cutPosition(box, share * content));
  addPieces(first, limit, pieces);
  addPieces(second, limit, pieces);
}

/// Returns how many cells of an area's longer side take `bytes`: at least one, and not all of them.
int ChangeMap::cutPosition(const PixelRect& cells, double bytes) const {
  const int length = std::max(cells.width, cells.height);
  int position = 0;
  while (bytes > 0 && position < length - 1) {
    PixelRect line = cut(cells, position++).second;
    (cells.width >= cells.height ? line.width : line.height) = 1;
    visit(cells_, grid_.width, line, [&bytes](const Cell& cell) { bytes -= cell.bytes; });
  }
  return std::max(1, position);
}

}  // namespace screenshare
