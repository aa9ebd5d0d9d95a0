#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Pictures.hpp"

namespace tarnwick::test {
namespace {

using Side = std::int64_t;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(Image, HasPixelsForUsableSizesOnly) {
  for (const CGSize& size : {CGSize{3, 5}, {2.1, 4.0001}, {3, 4.5}}) {
    const auto created = NSImage::create(size);
    EXPECT_EQ(created->size(), size);
    EXPECT_TRUE(equal(*created->bitmap(), plain(3, 5, 0)));
  }
  const auto source = NSImage::fromBitmap(picture(3, 7));
  for (const CGSize& size : {CGSize{0, 5},
                             {5, -1},
                             {nan, 5},
                             {5, infinity},
                             {-infinity, nan},
                             {1e300, 1e300},
                             {16384, 8192},
                             {128'000'001, 1}}) {
    EXPECT_EQ(NSImage::create(size)->bitmap(), nullptr);
    EXPECT_EQ(crop(*source, {{0, 0}, size})->bitmap(), nullptr);
    EXPECT_EQ(resize(*source, size)->bitmap(), nullptr);
    EXPECT_EQ(NSImage::create(size)->jpegRepresentation(1), std::nullopt);
    EXPECT_EQ(crop(*NSImage::create(size), {{0, 0}, {2, 2}})->bitmap()->pixels, Data(16));
  }
  for (const Side side : {Side{0}, Side{-1}, Side{2}, Side{1} << 31, Side{1} << 62}) {
    EXPECT_EQ(NSImage::fromBitmap({side, 1, Data(4)}), nullptr);
    EXPECT_EQ(NSImage::fromBitmap({side, side, Data(4)}), nullptr);
  }
}

/// `target` with the pixels of `source` from (x, y) on at (intoX, intoY), one by one.
Bitmap pasted(const Bitmap& source, Side x, Side y, Side width, Side height, Bitmap target,
              Side intoX, Side intoY) {
  const auto has = [](const Bitmap& bitmap, Side column, Side row) {
    return column >= 0 && column < bitmap.width && row >= 0 && row < bitmap.height;
  };
  for (Side row = 0; row < height; ++row) {
    for (Side column = 0; column < width; ++column) {
      if (!has(source, x + column, y + row) || !has(target, intoX + column, intoY + row)) continue;
      std::copy_n(source.row(y + row) + (x + column) * 4, 4,
                  target.row(intoY + row) + (intoX + column) * 4);
    }
  }
  return target;
}

CGRect rectangle(Side x, Side y, Side width, Side height) {
  return {{static_cast<CGFloat>(x), static_cast<CGFloat>(y)},
          {static_cast<CGFloat>(width), static_cast<CGFloat>(height)}};
}

using Place = std::array<Side, 4>;

TEST(Image, IsCropped) {
  const Bitmap pixels = translucent(60, 100);
  const auto source = NSImage::fromBitmap(pixels);
  for (const auto& [x, y, width, height] : {Place{0, 0, 60, 100},
                                            {10, 20, 30, 40},
                                            {-5, -7, 20, 20},
                                            {50, 90, 20, 30},
                                            {-5, -5, 80, 120},
                                            {-30, 0, 10, 10},
                                            {10, 200, 10, 10},
                                            {1LL << 60, 0, 2, 2}}) {
    const auto cropped = crop(*source, rectangle(x, y, width, height));
    EXPECT_TRUE(equal(*cropped->bitmap(),
                      pasted(pixels, x, y, width, height, plain(width, height, 0), 0, 0)))
        << x << ' ' << y;
    EXPECT_EQ(cropped->size(), rectangle(x, y, width, height).size);
  }
  EXPECT_TRUE(equal(*crop(*source, {{10.5, 20.25}, {30.5, 40.75}})->bitmap(),
                    *crop(*source, rectangle(10, 20, 31, 41))->bitmap()));
  EXPECT_EQ(crop(*source, {{nan, infinity}, {2, 2}})->bitmap()->pixels, Data(16));
  EXPECT_TRUE(equal(*source->bitmap(), pixels));
}

TEST(Image, IsCroppedInItsLogicalUnits) {
  const auto source = NSImage::fromBitmap(gradient(60, 100));
  for (const double factor : {0.5, 1.5}) {
    const auto same = NSImage::fromBitmap(gradient(Side(60 * factor), Side(100 * factor)));
    source->setSize(same->size());
    const CGRect rect{{6, 12}, {15, 24}};
    EXPECT_GT(psnr(*crop(*source, rect)->bitmap(), *crop(*same, rect)->bitmap()), 45) << factor;
  }
}

TEST(Image, IsResized) {
  const auto source = NSImage::fromBitmap(gradient(200, 100));
  for (const auto& [width, height, decibels] : {std::tuple<Side, Side, double>{50, 50, 53},
                                                {317, 211, 51},
                                                {199, 3, 35},
                                                {7, 300, 47},
                                                {1, 1, 60}}) {
    const CGSize size = rectangle(0, 0, width, height).size;
    const auto resized = resize(*source, size);
    EXPECT_GT(psnr(*resized->bitmap(), gradient(width, height)), decibels) << width;
    EXPECT_TRUE(resized->size() == size && source->size() == size);
    EXPECT_EQ(source->resizingMode(), ResizingMode::tile);
    EXPECT_TRUE(equal(*source->bitmap(), gradient(200, 100)));
  }
  const auto large = NSImage::fromBitmap(gradient(1500, 1100));  // scaled in two halves
  EXPECT_GT(psnr(*resize(*large, {700, 501})->bitmap(), gradient(700, 501)), 53);
  EXPECT_GT(psnr(*resize(*large, {500, 2})->bitmap(), gradient(500, 2)), 31);
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

TEST(Image, IsDrawnIntoAnother) {
  const Bitmap pixels = translucent(30, 30), ground = plain(20, 20, 99);
  const auto source = NSImage::fromBitmap(pixels);
  for (const auto& [x, y] :
       {std::pair<Side, Side>{5, 5}, {-3, 5}, {15, 5}, {5, -4}, {5, 16}, {-40, 5}}) {
    const auto target = NSImage::fromBitmap(ground);
    // Drawing counts from the bottom: what is 8 high and 6 from the top is 16 from there.
    target->draw(*source, rectangle(4, 16, 10, 8), rectangle(x, 20 - 8 - y, 10, 8));
    EXPECT_TRUE(equal(*target->bitmap(), pasted(pixels, 4, 6, 10, 8, ground, x, y))) << x << y;
  }
}

}  // namespace
}  // namespace tarnwick::test
