#include <gtest/gtest.h>

#include <numbers>
#include <random>

#include "Tarnwick/Platform/ImageAveraging.hpp"
#include "Tarnwick/Platform/ImageDrawing.hpp"
#include "Tests/Pictures.hpp"

namespace tarnwick::test {

using Side = std::int64_t;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

static_assert(isWithinPixelLimit(128'000'000, 1) && isWithinPixelLimit(8'000, 16'000));

TEST(Image, HasPixelsForUsableSizesOnly) {
  for (const CGSize& size : {CGSize{3, 5}, {2.1, 4.0001}, {3.0000001, 4.5}}) {
    const auto created = NSImage::create(size);
    EXPECT_EQ(created->size(), size);
    EXPECT_TRUE(equal(*created->bitmap(), plain(3, 5, 0)));
  }
  const auto source = NSImage::fromBitmap(picture(3, 7));
  std::vector<CGSize> sizes{{-infinity, nan}, {16384, 8192}, {128'000'001, 1}};
  for (const double length : {0.0, 1e-6, -1.0, nan, infinity, 1e300}) {
    sizes.insert(sizes.end(), {{length, 5}, {5, length}, {length, length}});
  }
  for (const CGSize& size : sizes) {
    EXPECT_EQ(NSImage::create(size)->bitmap(), nullptr);
    EXPECT_EQ(crop(*source, {{0, 0}, size})->bitmap(), nullptr);
    EXPECT_EQ(source->resizingMode(), ResizingMode::stretch);
    EXPECT_EQ(resize(*NSImage::fromBitmap(picture(3, 7)), size)->bitmap(), nullptr);
    EXPECT_EQ(NSImage::create(size)->jpegRepresentation(1), std::nullopt);
    EXPECT_EQ(NSImage::create(size)->pngRepresentation(), std::nullopt);
    EXPECT_EQ(crop(*NSImage::create(size), {{0, 0}, {2, 2}})->bitmap()->pixels, Data(16));
  }
  for (const CGPoint& origin : {CGPoint{nan, infinity}, {1e18, 0}, {0, -1e300}}) {
    EXPECT_EQ(crop(*source, {origin, {2, 2}})->bitmap()->pixels, Data(16));
  }
  const auto target = NSImage::create({2, 2});
  for (const double length : {0.0, -1.0, 1e-7, 1e300, infinity, nan}) {
    for (std::size_t i = 0; i < 4; ++i) {
      std::array<double, 4> lengths{2, 2, 2, 2};
      lengths[i] = length;
      target->draw(*source, {{}, {lengths[0], lengths[1]}}, {{}, {lengths[2], lengths[3]}});
      EXPECT_EQ(target->bitmap()->pixels, Data(16)) << length;
    }
  }
  EXPECT_GT(pixelCount(infinity), pixelLimit);
  for (const Side side : {Side{0}, Side{-1}, Side{2}, Side{1} << 31, Side{1} << 62}) {
    EXPECT_EQ(NSImage::fromBitmap({side, 1, Data(4)}), nullptr);
    EXPECT_EQ(NSImage::fromBitmap({side, side, Data(4)}), nullptr);
  }
  for (const Bitmap& bitmap : {Bitmap{0, 1, {}}, {1, 0, {}}, {1, 1, Data(8)}}) {
    EXPECT_EQ(NSImage::fromBitmap(bitmap), nullptr);
  }
}

/// One dimension of a drawing: the source's side, and the intervals in source and target.
struct Axis {
  double side, from, fromLength, into, intoLength;

  /// How much of a target pixel the source covers; negative if nothing.
  [[nodiscard]] double share(double pixel) const {
    const auto target = [&](double x) { return into + (x - from) * intoLength / fromLength; };
    return std::min(target(std::min(from + fromLength, side)), pixel + 1) -
           std::max(target(std::max(from, 0.0)), pixel);
  }

  /// The source pixel that is copied to a target pixel.
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
      if (isCopied) any = {side, any.from, any.fromLength, any.into, any.fromLength + 1e-9};
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
      if (std::abs(share) < 1e-5) continue;  // depends on rounding
      const Data ground(4, isCropped ? 0 : 1);
      const std::uint8_t* expected = share < 0 ? ground.data() : white.row(0);
      if (share > 0 && isCopied) expected = pixels.row(y.copied(row)) + x.copied(column) * 4;
      ASSERT_TRUE(std::equal(expected, expected + 4, drawn.row(row) + column * 4))
          << round << ": " << column << ' ' << row;
    }
  }
}

TEST(Image, IsReadWithinItsPixelsWhateverRoundingDoes) {
  const auto source = NSImage::fromBitmap(gradient(9, 2)), target = NSImage::create({10, 2});
  target->draw(*source, {{9 - 5e-7, 0}, {1, 2}}, {{0.5, 0}, {1, 2}});
  EXPECT_EQ(target->bitmap()->row(0)[0], source->bitmap()->row(0)[std::size_t{8} * 4]);
  target->draw(*source, {{-6799400002.0056648, 0}, {6799400014.7216845, 2}},
               {{-6799400005.0056648, 0}, {6799400014.7216854, 2}});
  EXPECT_EQ(target->bitmap()->row(0)[6 * 4 + 3], 0);
}

TEST(Image, IsResized) {
  const auto source = NSImage::fromBitmap(gradient(200, 100));
  const CGSize size{317.5, 211};
  const auto resized = resize(*source, size);
  EXPECT_GT(psnr(*resized->bitmap(), gradient(318, 211)), 48);
  EXPECT_TRUE(resized->size() == size && source->size() == size);
  EXPECT_EQ(source->resizingMode(), ResizingMode::tile);
  EXPECT_TRUE(equal(*source->bitmap(), gradient(200, 100)));
  // Only a small part of the drawing is within source and target. It fills the pixel.
  const auto target = NSImage::create({1, 1});
  target->draw(*NSImage::fromBitmap(gradient(200, 100)), {{-9800, 0}, {10000, 100}}, {{}, {1, 1}});
  EXPECT_NEAR(target->bitmap()->pixels.at(0), 127, 2);
  target->draw(*resized, {{200.5, 100}, {1e-5, 1e-5}}, {{-1e12, -1e12}, {2e12, 2e12}});
  EXPECT_NEAR(target->bitmap()->pixels.at(0), 161, 2);
  source->setSize({199.5, 100});  // changes no pixels
  EXPECT_EQ(crop(*source, {{99.75, 0}, {99.75, 100}})->bitmap()->pixels.at(std::size_t{99} * 4),
            254);
}

/// The Lanczos filter with three lobes at `centre`, for results that are `step` samples apart.
double lanczos(const Data& samples, double centre, double step) {
  const auto sinc = [](double x) { return x == 0 ? 1 : std::sin(x) / x; };
  const Side side = std::ssize(samples);
  const double width = std::max(step, 1.0), reach = 3 * width;
  double sum = 0, weights = 0;
  for (Side i = std::lround(centre - reach); double(i) + 0.5 < centre + reach; ++i) {
    const double x = (double(i) + 0.5 - centre) / width * std::numbers::pi;
    const Side mirrored = std::min(i < 0 ? -1 - i : i, i < side ? side - 1 : 2 * side - 1 - i);
    sum += sinc(x) * sinc(x / 3) * samples[std::size_t(std::max(mirrored, Side{0}))];
    weights += sinc(x) * sinc(x / 3);
  }
  return std::clamp(sum / weights, 0.0, 255.0);
}

TEST(Image, IsScaledByOneFilterAtAnyLength) {
  using Case = std::tuple<Side, Side, CGRect, Side, Side>;
  constexpr Side k = 1000;
  for (const auto& [width, height, from, newWidth, newHeight] :
       {Case{50, 30, {{}, {50, 30}}, 20, 50},
        {50, 40, {{10.25, 5.5}, {20.05, 8.95}}, 20, 9},
        {1'500, 800, {{}, {1'500, 800}}, 400, 150},  // in two parts
        {900, 700, {{100, 100.5}, {500, 500}}, 1'300, 1'000},
        {70 * k, 4, {{}, {70 * k, 4}}, 7 * k, 4},
        {2, 66 * k, {{0, 12000.5}, {2, 40000}}, 3, 33 * k},
        {66 * k, 2, {{12000.5, 0}, {40000, 2}}, 33 * k, 3},
        {5 * k, 1, {{}, {5 * k, 1}}, 70 * k, 1},
        {1, 1, {{}, {1, 1}}, 1, 100 * k},
        {1, 1000 * k, {{0, 250000.5}, {1, 600000}}, 1, k + 1},
        {1000 * k, 1, {{250000.5, 0}, {700000, 1}}, 1, 1}}) {
    std::mt19937 random(1);
    Data across, down;
    const auto sample = [&](Side i, Side side) {  // noise on a slope
      return static_cast<std::uint8_t>(random() % 128 + static_cast<unsigned>(127 * i / side));
    };
    while (std::ssize(across) < width) across.push_back(sample(std::ssize(across), width));
    while (std::ssize(down) < height) down.push_back(sample(std::ssize(down), height));
    Bitmap pixels = plain(width, height, 255);
    for (std::size_t i = 0; i < pixels.pixels.size(); i += 4) {
      pixels.pixels[i] = across[i / 4 % across.size()];
      pixels.pixels[i + 1] = down[i / 4 / across.size()];
    }
    const CGSize size{double(newWidth), double(newHeight)};
    const auto target = NSImage::create(size);
    const double y = double(height) - from.origin.y - from.size.height;
    const auto source = NSImage::fromBitmap(pixels);
    source->setSize({double(width) / 2, double(height) * 4});
    target->draw(*source, {{from.origin.x / 2, y * 4}, {from.size.width / 2, from.size.height * 4}},
                 {{}, size});
    const auto expectNear = [](std::uint8_t result, const Data& samples, double first,
                               double length, Side i, Side count) {
      const double step = length / double(count);
      ASSERT_NEAR(result, lanczos(samples, first + (double(i) + 0.5) * step, step), 1.5) << count;
    };
    const Bitmap& result = *target->bitmap();
    for (Side i = 0; i < newWidth; i += 1 + newWidth / 3000) {
      expectNear(result.row(0)[i * 4], across, from.origin.x, from.size.width, i, newWidth);
    }
    for (Side i = 0; i < newHeight; i += 1 + newHeight / 3000) {
      expectNear(result.row(i)[1], down, from.origin.y, from.size.height, i, newHeight);
    }
  }
}

TEST(Image, IsAveragedByAlpha) {
  const Bitmap source{3, 3, {10, 20, 30, 100, 50, 60,  70,  50, 1, 2, 3, 0,  //
                             0,  0,  0,  0,   97, 100, 110, 53, 7, 8, 9, 3,  //
                             1,  1,  1,  0,   2,  2,   2,   0,  9, 9, 9, 255}};
  EXPECT_TRUE(equal(averaged(source, 2, 2),
                    {2, 2, {43, 51, 61, 51, 7, 8, 9, 2, 0, 0, 0, 0, 9, 9, 9, 255}}));
}

TEST(Image, KeepsTransparencyWhereverItIsAndMixesInNothingOfIt) {
  for (const auto& [width, height] :
       {std::pair<Side, Side>{1, 1}, {2, 1}, {5, 1}, {3, 7}, {100, 101}, {1025, 1024}}) {
    for (const Side hole : {Side{0}, width * height - 2, width * height - 1}) {
      Bitmap pixels = plain(width, height, 255);
      std::fill_n(&pixels.pixels[std::size_t(std::max(hole, Side{0})) * 4], 4, std::uint8_t{0});
      const auto image = NSImage::fromBitmap(std::move(pixels));
      const CGSize size{double(width), 2 * double(height)};
      const Data resized = resize(*image, size)->bitmap()->pixels;
      int least = 255, most = 0;
      bool isClean = true;
      for (std::size_t i = 0; i < resized.size(); i += 4) {
        const int alpha = resized[i + 3];
        isClean &= alpha == 0 || resized[i] + resized[i + 1] + resized[i + 2] == 3 * 255;
        least = std::min(least, alpha);
        most = std::max(most, alpha);
      }
      EXPECT_TRUE(isClean) << width << ' ' << hole;
      EXPECT_LT(least, 128) << width << ' ' << hole;
      EXPECT_EQ(most, width == 1 ? 0 : 255) << hole;
    }
  }
}

}  // namespace tarnwick::test
