#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "Screenshare/PixelRect.hpp"

namespace screenshare {

/// Records which parts of a picture must be sent, since when, and the size of their last files.
/// Divides these parts into regions. The grid's cells of 16 x 16 pixels match JPEG's blocks, so
/// that regions join without seams. For one thread.
class ChangeMap {
 public:
  using Time = std::chrono::steady_clock::time_point;

  struct Piece {
    PixelRect area;
    Time due;
  };

  /// Begins with nothing due. `emptyFile` is the file size of an empty picture, in bytes.
  ChangeMap(int width, int height, std::size_t emptyFile);

  /// Marks pixels to be sent. Pixels that are due earlier are sent first.
  void touch(const PixelRect& area, Time due);

  /// Whether nothing is to be sent, and the rectangle around all that is.
  [[nodiscard]] bool isClean() const { return box().isEmpty(); }
  [[nodiscard]] PixelRect box() const;

  /// Returns regions that cover everything to be sent, the earliest due first. Each is expected to
  /// take at most `limit` bytes, except for a region of a single cell.
  [[nodiscard]] std::vector<Piece> pieces(double limit) const;

  /// Returns the two halves of a region, or nothing for a single cell.
  [[nodiscard]] std::optional<std::pair<PixelRect, PixelRect>> halves(const PixelRect& area) const;

  /// Records the size of a region's file, which predicts the size of the next one.
  void learn(const PixelRect& area, std::size_t fileSize);

  /// Marks a region as sent.
  void clear(const PixelRect& area);

 private:
  struct Cell {
    Time due = never;
    double bytes = guess;
  };
  static constexpr Time never = Time::max();
  static constexpr int side = 16;       // of a cell, in pixels
  static constexpr double guess = 30;   // bytes per cell before the first file
  static constexpr int idleCells = 64;  // unchanged, in one region: cheaper than another region

  [[nodiscard]] PixelRect cellsOf(const PixelRect& area) const;
  [[nodiscard]] PixelRect pixelsOf(const PixelRect& cells) const;
  [[nodiscard]] PixelRect dirtyBox(const PixelRect& cells) const;
  [[nodiscard]] int cutPosition(const PixelRect& cells, double bytes) const;
  void addPieces(const PixelRect& cells, double limit, std::vector<Piece>& pieces) const;

  const PixelRect picture_;  // in pixels
  const PixelRect grid_;     // in cells
  const double emptyFile_;
  std::vector<Cell> cells_;  // row by row
};

}  // namespace screenshare
