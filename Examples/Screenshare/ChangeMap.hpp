#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "Screenshare/PixelRect.hpp"

namespace screenshare {

/// Which parts of a picture have to be sent, since when, and what they took when they were sent
/// last: a grid of cells of 16 x 16 pixels, the blocks that JPEG works in, so that pieces join
/// without seams. From it come the pieces to send next. For one thread.
class ChangeMap {
 public:
  using Time = std::chrono::steady_clock::time_point;

  struct Piece {
    PixelRect area;
    Time due;
  };

  /// Nothing is due. `emptyFile` is what a picture without content takes, in bytes.
  ChangeMap(int width, int height, std::size_t emptyFile);

  /// These pixels are to be sent; what is due earlier goes first.
  void touch(const PixelRect& area, Time due);

  /// Whether anything is to be sent, and the rectangle that holds all of it.
  [[nodiscard]] bool isClean() const { return box().isEmpty(); }
  [[nodiscard]] PixelRect box() const;

  /// Pieces that hold all that is to be sent, what is due first first. None is expected to take
  /// more than `limit` bytes, unless a single cell does.
  [[nodiscard]] std::vector<Piece> pieces(double limit) const;

  /// The two halves of a piece; absent when it is a single cell.
  [[nodiscard]] std::optional<std::pair<PixelRect, PixelRect>> halves(const PixelRect& area) const;

  /// The file of a piece took this many bytes, as it probably will again.
  void learn(const PixelRect& area, std::size_t fileSize);

  /// A piece was sent.
  void clear(const PixelRect& area);

 private:
  struct Cell {
    Time due = never;
    double bytes = guess;
  };
  static constexpr Time never = Time::max();
  static constexpr int side = 16;       // of a cell, in pixels
  static constexpr double guess = 30;   // bytes a cell, before anything is known
  static constexpr int idleCells = 64;  // that a piece may hold: they cost less than another piece

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
