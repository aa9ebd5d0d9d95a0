#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Pictures.hpp"

namespace tarnwick::test {
namespace {

using Side = std::int64_t;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

CGRect rectangle(Side x, Side y, Side width, Side height) {
  return {{static_cast<CGFloat>(x), static_cast<CGFloat>(y)},
          {static_cast<CGFloat>(width), static_cast<CGFloat>(height)}};
}

static_assert(isWithinPixelLimit(128'000'000, 1) && isWithinPixelLimit(8'000, 16'000));

TEST(Image, HasPixelsForUsableSizesOnly) {
  for (const CGSize& size : {CGSize{3, 5}, {2.1, 4.0001}, {3.0000001, 4.5}}) {
    const auto created = NSImage::create(size);
    EXPECT_EQ(created->size(), size);
    EXPECT_TRUE(equal(*created->bitmap(), plain(3, 5, 0)));
  }
  const auto source = NSImage::fromBitmap(picture(3, 7));
  for (const CGSize& size : {CGSize{0, 5},
                             {1e-6, 5},
                             {5, -1},
                             {nan, 5},
                             {5, infinity},
                             {-infinity, nan},
                             {1e300, 1e300},
                             {16384, 8192},
                             {128'000'001, 1}}) {
    EXPECT_EQ(NSImage::create(size)->bitmap(), nullptr);
    EXPECT_EQ(crop(*source, {{0, 0}, size})->bitmap(), nullptr);
    EXPECT_EQ(source->resizingMode(), ResizingMode::stretch);
    EXPECT_EQ(resize(*NSImage::fromBitmap(picture(3, 7)), size)->bitmap(), nullptr);
    EXPECT_EQ(NSImage::create(size)->jpegRepresentation(1), std::nullopt);
    EXPECT_EQ(crop(*NSImage::create(size), {{0, 0}, {2, 2}})->bitmap()->pixels, Data(16));
  }
  for (const CGPoint& origin : {CGPoint{nan, infinity}, {1e18, 0}, {0, -1e300}}) {
    EXPECT_EQ(crop(*source, {origin, {2, 2}})->bitmap()->pixels, Data(16));
  }
  for (const Side side : {Side{0}, Side{-1}, Side{2}, Side{1} << 31, Side{1} << 62}) {
    EXPECT_EQ(NSImage::fromBitmap({side, 1, Data(4)}), nullptr);
    EXPECT_EQ(NSImage::fromBitmap({side, side, Data(4)}), nullptr);
  }
  EXPECT_EQ(NSImage::fromBitmap({0, 1, {}}), nullptr);
  EXPECT_EQ(NSImage::fromBitmap({1, 0, {}}), nullptr);
}

/// One side of a drawing: that of the source, and where it begins and how long it is in either.
struct Axis {
  double side, from, fromLength, into, intoLength;

  /// How much of this pixel of the target the source covers.
  [[nodiscard]] double share(double pixel) const {
    const auto target = [&](double x) { return into + (x - from) * intoLength / fromLength; };
    return std::min(target(std::min(from + fromLength, side)), pixel + 1) -
           std::max(target(std::max(from, 0.0)), pixel);
  }

  /// The pixel of the source that is copied to this one.
  [[nodiscard]] Side copied(Side pixel) const {
    const auto whole = [](double x) { return static_cast<Side>(std::floor(x + 1e-6)); };
    return std::max({pixel + whole(from - into), whole(from), Side{0}});
  }
};

TEST(Image, IsDrawnOverEveryPixelThatItCoversAndNoOther) {
  constexpr Side width = 6, height = 7;
  const Bitmap white = plain(width, height, 255), pixels = translucent(width, height);
  std::mt19937 random(1);
  const auto tenths = [&](int least, int most) {
    return 0.1 * std::uniform_int_distribution(least, most)(random);
  };
  for (int round = 0; round < 3000; ++round) {
    const bool isCropped = round % 3 == 0, isCopied = round % 3 < 2;
    const auto axis = [&](double side) {
      Axis any{tenths(1, 99), tenths(-50, 99), tenths(1, 150), tenths(-50, 99), tenths(1, 150)};
      if (isCopied) any = {side, any.from, any.fromLength, any.into, any.fromLength};
      return any;
    };
    Axis x = axis(width), y = axis(height);
    const auto source = NSImage::fromBitmap(isCopied ? pixels : white);
    auto target = NSImage::fromBitmap(plain(9, 8, 1));
    if (isCropped) {
      x.into = y.into = 0;
      target = crop(*source, {{x.from, y.from}, {x.fromLength, y.fromLength}});
    } else {
      const Data resized = resize(*source, {x.side, y.side})->bitmap()->pixels;
      EXPECT_TRUE(isCopied || resized == Data(resized.size(), 255)) << x.side << ' ' << y.side;
      target->draw(*source,
                   {{x.from, y.side - y.from - y.fromLength}, {x.fromLength, y.fromLength}},
                   {{x.into, 8 - y.into - y.intoLength}, {x.intoLength, y.intoLength}});
    }
    const Bitmap& drawn = *target->bitmap();
    for (Side i = 0; i < drawn.width * drawn.height; ++i) {
      const Side column = i % drawn.width, row = i / drawn.width;
      const double share = std::min(x.share(double(column)), y.share(double(row)));
      if (std::abs(share) < 1e-5) continue;  // may be rounding
      const Data ground(4, isCropped ? 0 : 1);
      const std::uint8_t* const expected = share < 0 ? ground.data()
                                           : isCopied
                                               ? pixels.row(y.copied(row)) + x.copied(column) * 4
                                               : white.row(0);
      ASSERT_TRUE(std::equal(expected, expected + 4, drawn.row(row) + column * 4))
          << round << ": " << column << ' ' << row;
    }
  }
}

TEST(Image, IsResized) {
  const auto source = NSImage::fromBitmap(gradient(200, 100));
  const CGSize size{317.5, 211};
  const auto resized = resize(*source, size);
  EXPECT_GT(psnr(*resized->bitmap(), gradient(318, 211)), 48);
  EXPECT_TRUE(resized->size() == size && source->size() == size);
  EXPECT_EQ(source->resizingMode(), ResizingMode::tile);
  EXPECT_TRUE(equal(*source->bitmap(), gradient(200, 100)));
  source->setSize({199.5, 100});  // still all of its pixels
  EXPECT_EQ(crop(*source, {{99.75, 0}, {99.75, 100}})->bitmap()->pixels.at(99 * 4), 254);
}

TEST(Image, IsNotScaledBeyondWhatEndsInTime) {
  const auto wide = NSImage::fromBitmap(plain(1'000'000, 1, 0xFF));
  EXPECT_TRUE(equal(*resize(*wide, {1, 1})->bitmap(), plain(1, 1, 0)));
  EXPECT_TRUE(
      equal(*resize(*NSImage::create({1, 1}), {100'000, 1})->bitmap(), plain(100'000, 1, 0)));
}

TEST(Image, StaysWhiteAndMixesInNothingTransparent) {
  const std::array<std::pair<Side, Side>, 4> sides{{{1, 1}, {3, 7}, {20, 15}, {100, 101}}};
  for (const auto& [width, height] : sides) {
    Bitmap pixels = plain(width, height, 255);
    const auto white = NSImage::fromBitmap(pixels);
    for (std::size_t i = 4; i + 4 <= pixels.pixels.size(); i += 12) {
      std::fill_n(pixels.pixels.data() + i, 4, std::uint8_t{0});
    }
    const auto holed = NSImage::fromBitmap(pixels);
    for (const auto& [x, y] : sides) {
      const CGSize size = rectangle(0, 0, x, y).size;
      EXPECT_TRUE(equal(*resize(*white, size)->bitmap(), plain(x, y, 255)));
      const Data result = resize(*holed, size)->bitmap()->pixels;
      int alpha = 0;
      for (std::size_t i = 0; i < result.size(); i += 4) {
        alpha = std::max(alpha, int{result[i + 3]});
        const bool isWhite = result[i] + result[i + 1] + result[i + 2] == 3 * 255;
        EXPECT_TRUE(isWhite || result[i + 3] == 0) << i;
      }
      EXPECT_GT(alpha, 128);
    }
  }
}

}  // namespace
}  // namespace tarnwick::test
