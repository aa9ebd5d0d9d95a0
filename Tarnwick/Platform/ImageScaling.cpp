#include "Tarnwick/Platform/ImageScaling.hpp"

#include <zimg.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <utility>
#include <vector>

#include "Tarnwick/Platform/Concurrently.hpp"
#include "Tarnwick/Platform/ImageAveraging.hpp"

namespace tarnwick {
namespace {

constexpr std::size_t alignment = 64;  // of rows, for the widest vectors that zimg uses

struct alignas(alignment) Block {
  std::array<std::uint8_t, alignment> bytes;
};

/// Longer sides are averaged first, because zimg's time grows with the square of the reduction, and
/// scaled in tiles, which bounds the memory of its filter tables.
constexpr std::int64_t longestWhole = 65535;

/// The side of a tile, in pixels of the result.
constexpr std::int64_t tileSide = 4096;

/// Averaging leaves at least this many pixels of a long side for each pixel of the result. With
/// fewer the result would differ visibly from one scaled from all pixels.
constexpr CGFloat leastRatio = 8;

/// Larger pictures, before or after, are scaled on two threads. Always two parts, on every machine:
/// each part costs zimg another filter table, and zimg chooses its pass order from the part's sides
/// and rounds between passes, so another number of parts would change pixels.
constexpr std::int64_t largestWhole = 1 << 20;

constexpr int lobes = 3;  // of the filter, on each side

constexpr std::size_t colourPlanes = 3, allPlanes = 4;

/// Pixels along one side of a picture, from `first` up to but not including `end`.
struct Range {
  std::int64_t first, end;
  [[nodiscard]] std::int64_t count() const { return end - first; }
};

/// The rows that zimg works on at a time, in planes: red, green, blue, alpha. Row i is stored at
/// index i & mask. Rows are converted from and to packed pixels when zimg asks for them, so a plane
/// holds only as many rows as zimg needs.
class PlanarRows {
 public:
  PlanarRows(std::size_t planes, std::int64_t width, std::int64_t height, unsigned buffering)
      : planes_(planes),
        mask_(zimg_select_buffer_mask(buffering)),
        blocksPerRow_((static_cast<std::size_t>(width) + alignment - 1) / alignment),
        rows_(mask_ == ZIMG_BUFFER_MAX ? static_cast<std::size_t>(height) : mask_ + 1),
        blocks_(planes * rows_ * blocksPerRow_),
        opaqueRow_(static_cast<std::size_t>(width), 0xFF) {}

  std::uint8_t* row(std::size_t plane, unsigned i) {
    return blocks_[(plane * rows_ + (i & mask_)) * blocksPerRow_].bytes.data();
  }

  /// Describes the planes to zimg, as zimg_image_buffer or zimg_image_buffer_const.
  template <typename Buffer>
  Buffer description() {
    Buffer buffer{};
    buffer.version = ZIMG_API_VERSION;
    for (std::size_t plane = 0; plane < planes_; ++plane) {
      buffer.plane[plane].data = row(plane, 0);
      buffer.plane[plane].stride = static_cast<std::ptrdiff_t>(blocksPerRow_ * alignment);
      buffer.plane[plane].mask = mask_;
    }
    return buffer;
  }

  // One loop over the pixels for all colours, which the compiler vectorises.
  void unpack(const std::uint8_t* pixels, unsigned i, unsigned left, unsigned right) {
    std::uint8_t *const red = row(0, i), *const green = row(1, i), *const blue = row(2, i);
    for (std::size_t x = left; x < right; ++x) {
      const std::uint8_t* const pixel = pixels + x * Bitmap::bytesPerPixel;
      blue[x] = pixel[0];
      green[x] = pixel[1];
      red[x] = pixel[2];
    }
    if (planes_ == colourPlanes) return;
    std::uint8_t* const alpha = row(3, i);
    for (std::size_t x = left; x < right; ++x) alpha[x] = pixels[x * Bitmap::bytesPerPixel + 3];
  }

  void pack(std::uint8_t* pixels, unsigned i, unsigned left, unsigned right) {
    const std::uint8_t *const red = row(0, i), *const green = row(1, i), *const blue = row(2, i);
    const std::uint8_t* const alpha = planes_ == colourPlanes ? opaqueRow_.data() : row(3, i);
    for (std::size_t x = left; x < right; ++x) {
      std::uint8_t* const pixel = pixels + x * Bitmap::bytesPerPixel;
      pixel[0] = blue[x];
      pixel[1] = green[x];
      pixel[2] = red[x];
      pixel[3] = alpha[x];
    }
  }

 private:
  const std::size_t planes_;
  const unsigned mask_;
  const std::size_t blocksPerRow_;
  const std::size_t rows_;
  std::vector<Block> blocks_;
  const Data opaqueRow_;  // the alpha of pictures without an alpha plane
};

/// The argument of zimg's callbacks: the bitmap that they read or write, the first pixel of it that
/// they use, and its rows in planes.
template <typename Pixels>
struct Side {
  Pixels& bitmap;
  std::int64_t firstColumn, firstRow;
  PlanarRows rows;

  [[nodiscard]] auto* row(unsigned i) const {
    return bitmap.row(firstRow + i) + firstColumn * Bitmap::bytesPerPixel;
  }
};

bool isOpaque(std::span<const std::uint8_t> pixels) {
  constexpr std::array<std::uint8_t, 8> alphaBytes{0, 0, 0, 0xFF, 0, 0, 0, 0xFF};
  std::uint64_t all = ~std::uint64_t{0}, pair = 0, alpha = 0;
  std::memcpy(&alpha, alphaBytes.data(), sizeof alpha);
  std::size_t position = 0;
  for (; pixels.size() - position >= sizeof pair; position += sizeof pair) {
    std::memcpy(&pair, pixels.data() + position, sizeof pair);
    all &= pair;
  }
  return (all & alpha) == alpha && (position == pixels.size() || pixels.back() == 0xFF);
}

zimg_image_format format(std::int64_t width, std::int64_t height, bool hasAlpha) {
  zimg_image_format format;
  zimg_image_format_default(&format, ZIMG_API_VERSION);
  format.width = static_cast<unsigned>(width);
  format.height = static_cast<unsigned>(height);
  format.pixel_type = ZIMG_PIXEL_BYTE;
  format.color_family = ZIMG_COLOR_RGB;
  format.matrix_coefficients = ZIMG_MATRIX_RGB;
  format.pixel_range = ZIMG_RANGE_FULL;
  // Given straight alpha, zimg multiplies by it before the filter and divides after.
  format.alpha = hasAlpha ? ZIMG_ALPHA_STRAIGHT : ZIMG_ALPHA_NONE;
  return format;
}

zimg_graph_builder_params lanczos3() {
  zimg_graph_builder_params params;
  zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
  params.resample_filter = ZIMG_RESIZE_LANCZOS;
  params.filter_param_a = lobes;
  params.cpu_type = ZIMG_CPU_AUTO_64B;
  return params;
}

/// The pixels of a source's side that the filter reads to scale `length` pixels from `from` on to
/// `count`. A lobe is one pixel wide, or wider by the factor by which the picture shrinks.
Range neededFor(std::int64_t side, CGFloat from, CGFloat length, std::int64_t count) {
  const CGFloat reach = lobes * std::max(1.0, length / static_cast<CGFloat>(count)) + 1;
  const auto first = static_cast<std::int64_t>(std::max(from - reach, 0.0));
  const auto end = static_cast<std::int64_t>(std::ceil(from + length + reach));
  return {first, std::min(end, side)};
}

/// The share of `length` that belongs to `count` of `side` pixels.
CGFloat portion(CGFloat length, std::int64_t count, std::int64_t side) {
  return length * static_cast<CGFloat>(count) / static_cast<CGFloat>(side);
}

/// Scales the tile of `result` with these columns and rows.
void scaleTile(const Bitmap& source, const CGRect& region, bool hasAlpha, Bitmap& result,
               const Range& columns, const Range& rows) {
  const CGFloat left = region.origin.x + portion(region.size.width, columns.first, result.width);
  const CGFloat top = region.origin.y + portion(region.size.height, rows.first, result.height);
  const CGFloat width = portion(region.size.width, columns.count(), result.width);
  const CGFloat height = portion(region.size.height, rows.count(), result.height);
  const bool isLong = std::max(source.width, result.width) > longestWhole;
  const Range neededColumns =
      isLong ? neededFor(source.width, left, width, columns.count()) : Range{0, source.width};
  const Range neededRows = neededFor(source.height, top, height, rows.count());

  const std::size_t planes = hasAlpha ? allPlanes : colourPlanes;
  zimg_image_format from = format(neededColumns.count(), neededRows.count(), hasAlpha);
  from.active_region = {left - static_cast<CGFloat>(neededColumns.first),
                        top - static_cast<CGFloat>(neededRows.first), width, height};
  const zimg_image_format to = format(columns.count(), rows.count(), hasAlpha);
  const zimg_graph_builder_params params = lanczos3();
  const std::unique_ptr<zimg_filter_graph, decltype(&zimg_filter_graph_free)> graph(
      zimg_filter_graph_build(&from, &to, &params), zimg_filter_graph_free);
  if (!graph) throw std::bad_alloc();

  unsigned inputRows = 0, outputRows = 0;
  std::size_t workBytes = 0;
  zimg_filter_graph_get_input_buffering(graph.get(), &inputRows);
  zimg_filter_graph_get_output_buffering(graph.get(), &outputRows);
  zimg_filter_graph_get_tmp_size(graph.get(), &workBytes);
  std::vector<Block> work(workBytes / alignment + 1);

  Side<const Bitmap> input{source,
                           neededColumns.first,
                           neededRows.first,
                           {planes, neededColumns.count(), neededRows.count(), inputRows}};
  Side<Bitmap> output{
      result, columns.first, rows.first, {planes, columns.count(), rows.count(), outputRows}};
  const auto unpack = [](void* user, unsigned i, unsigned begin, unsigned end) {
    auto& side = *static_cast<Side<const Bitmap>*>(user);
    side.rows.unpack(side.row(i), i, begin, end);
    return 0;
  };
  const auto pack = [](void* user, unsigned i, unsigned begin, unsigned end) {
    auto& side = *static_cast<Side<Bitmap>*>(user);
    side.rows.pack(side.row(i), i, begin, end);
    return 0;
  };
  const auto read = input.rows.description<zimg_image_buffer_const>();
  const auto written = output.rows.description<zimg_image_buffer>();
  if (zimg_filter_graph_process(graph.get(), &read, &written, work.data(), unpack, &input, pack,
                                &output) != ZIMG_ERROR_SUCCESS) {
    throw std::bad_alloc();
  }
}

/// Calls `body` concurrently for each of `parts` parts of `length` rows.
template <typename Body>
void inParts(std::int64_t parts, std::int64_t length, const Body& body) {
  concurrently(static_cast<std::size_t>(parts), [&](std::size_t i) {
    const auto part = static_cast<std::int64_t>(i);
    body(Range{length * part / parts, length * (part + 1) / parts});
  });
}

/// Calls `body` for each tile of `range`, or for all of `range` if neither side, before or after
/// scaling, is over longestWhole.
template <typename Body>
void inTiles(const Range& range, std::int64_t longest, const Body& body) {
  const std::int64_t length = longest > longestWhole ? tileSide : range.count();
  for (std::int64_t first = range.first; first < range.end; first += length) {
    body(Range{first, std::min(first + length, range.end)});
  }
}

/// How many pixels of a side are averaged to one if `length` pixels become `count`; at least 1.
std::int64_t groupSize(std::int64_t side, CGFloat length, std::int64_t count) {
  const auto size = static_cast<std::int64_t>(length / static_cast<CGFloat>(count) / leastRatio);
  return side > longestWhole ? std::max<std::int64_t>(size, 1) : 1;
}

}  // namespace

Bitmap scaled(const Bitmap& source, const CGRect& region, std::int64_t width, std::int64_t height) {
  const std::int64_t across = groupSize(source.width, region.size.width, width);
  const std::int64_t down = groupSize(source.height, region.size.height, height);
  if (across > 1 || down > 1) {
    const auto columns = static_cast<CGFloat>(across), rows = static_cast<CGFloat>(down);
    return scaled(averaged(source, across, down),
                  {{region.origin.x / columns, region.origin.y / rows},
                   {region.size.width / columns, region.size.height / rows}},
                  width, height);
  }
  const std::int64_t pixels = std::max(source.width * source.height, width * height);
  const std::int64_t parts = pixels > largestWhole ? 2 : 1;
  std::atomic<bool> hasAlpha = false;
  inParts(parts, source.height, [&](const Range& rows) {
    const auto size = static_cast<std::size_t>(rows.count()) * source.rowBytes();
    if (!isOpaque({source.row(rows.first), size})) hasAlpha = true;
  });
  Bitmap result{width, height,
                Data(static_cast<std::size_t>(width * height * Bitmap::bytesPerPixel))};
  inParts(parts, height, [&](const Range& part) {
    inTiles(part, std::max(source.height, height), [&](const Range& rows) {
      inTiles({0, width}, std::max(source.width, width), [&](const Range& columns) {
        scaleTile(source, region, hasAlpha, result, columns, rows);
      });
    });
  });
  return result;
}

}  // namespace tarnwick
