#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <bit>
#include <bitset>
#include <cmath>

#include "Tarnwick/Platform/ImageCodec.hpp"
#include "Tarnwick/Tarnwick.hpp"
#include "Tests/Pictures.hpp"

namespace tarnwick::test {
namespace {

using Side = std::int64_t;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

Data jpeg(const Bitmap& bitmap, double factor) {
  return NSImage::fromBitmap(bitmap)->jpegRepresentation(static_cast<float>(factor)).value();
}

Data png(const Bitmap& bitmap) { return NSImage::fromBitmap(bitmap)->pngRepresentation().value(); }

Bitmap decoded(const Data& file) { return ImageCodec::decode(file).value_or(Bitmap{}); }

bool isImage(const Data& file) { return NSImage::fromData(file) != nullptr; }

bool equal(const Bitmap& left, const Bitmap& right) {
  return left.width == right.width && left.height == right.height && left.pixels == right.pixels;
}

Bitmap plain(Side width, Side height, std::uint8_t value) {
  return {width, height, Data(static_cast<std::size_t>(width * height * 4), value)};
}

/// The picture, with every alpha there is.
Bitmap translucent(Side width, Side height) {
  Bitmap bitmap = picture(width, height);
  for (std::size_t i = 3; i < bitmap.pixels.size(); i += 4) {
    bitmap.pixels[i] = static_cast<std::uint8_t>(i / 4);
  }
  return bitmap;
}

/// `file` with `count` more bytes from `position` on.
Data stuffed(Data file, std::size_t position, std::size_t count) {
  file.insert(file.begin() + static_cast<std::ptrdiff_t>(position), count, 0x5A);
  return file;
}

/// The place of the header segment of a JPEG file that has this marker.
std::size_t segment(const Data& file, int marker) {
  std::size_t position = 2;
  while (file.at(position + 1) != marker) {
    position += std::size_t{2} + file.at(position + 2) * std::size_t{256} + file.at(position + 3);
  }
  return position;
}

/// A plain-coloured JPEG file of one sample a component, written segment by segment: of one scan
/// or, when `scans` says how many, a progressive one, which is complete from one more scan than it
/// has components. `front` are the segments before all others.
Data plainJPEG(const std::vector<int>& samples, int width, int height, int scans = 0,
               const std::vector<int>& front = {}) {
  const int count = static_cast<int>(samples.size()), frame = scans > 0 ? 0xC2 : 0xC0;
  std::vector<int> file{0xFF, 0xD8};
  const auto add = [&](const std::vector<int>& more) {
    file.insert(file.end(), more.begin(), more.end());
  };
  add(front);
  add({0xFF, 0xDB, 0, 67, 0});
  add(std::vector<int>(64, 8));
  // Codes of four bits for the lengths 0 to 8 of a difference, and of one for a block's end.
  add({0xFF, 0xC4, 0, 28, 0, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  add({0, 1, 2, 3, 4, 5, 6, 7, 8});
  add({0xFF, 0xC4, 0, 20, 0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  add({0xFF, frame, 0, 8 + 3 * count, 8, height / 256, height % 256, width / 256, width % 256});
  add({count});
  for (int id = 1; id <= count; ++id) add({id, 0x11, 0});
  add({0xFF, 0xDA, 0, 6 + 2 * count, count});
  for (int id = 1; id <= count; ++id) add({id, 0});
  add({0, scans > 0 ? 0 : 63, 0});
  std::string bits;
  for (const int sample : samples) {
    const auto size = static_cast<unsigned>(std::abs(sample - 128));
    const auto length = static_cast<unsigned>(std::bit_width(size));
    const unsigned code = sample < 128 ? ~size : size;
    bits += std::bitset<4>(length).to_string();
    bits += std::bitset<8>(code).to_string().substr(8 - length) + (scans > 0 ? "" : "0");
  }
  // Blocks like the first are zeros.
  const int blocks = ((width + 7) / 8) * ((height + 7) / 8);
  const int others = count * (blocks - 1) * (scans > 0 ? 4 : 5);
  bits.append(static_cast<std::size_t>(others), '0');
  for (std::size_t i = 0; i < bits.size(); i += 8) {
    const std::string byte = (bits.substr(i, 8) + "0000000").substr(0, 8);
    file.push_back(static_cast<int>(std::bitset<8>(byte).to_ulong()));
  }
  int left = scans - 1;
  for (int id = 1; id <= count; ++id) {  // a coefficient a scan, then what is left of them in one
    const int parts = std::min(63, left - (count - id));
    for (int part = 1; part <= parts; ++part, --left) {
      add({0xFF, 0xDA, 0, 8, 1, id, 0, part, part < parts ? part : 63, 0});
      add(std::vector<int>(static_cast<std::size_t>(blocks / 8 + 1)));
    }
  }
  add({0xFF, 0xD9});
  return {file.begin(), file.end()};
}

// --- Encodings ---

TEST(JPEG, KeepsThePicture) {
  // What remains in decibels at factors of 0.4, 0.6 and 0.9, at least: 3 below what was measured.
  struct Case {
    Side width, height;
    double low, medium, high;
  };
  for (const auto& [width, height, low, medium, high] :
       {Case{1, 1, 60, 60, 60}, {3, 5, 15, 20, 37}, {17, 31, 32, 36, 42}, {640, 480, 38, 41, 47}}) {
    const Bitmap source = gradient(width, height);
    EXPECT_GT(psnr(decoded(jpeg(source, 0.4)), source), low) << width;
    EXPECT_GT(psnr(decoded(jpeg(source, 0.6)), source), medium) << width;
    EXPECT_GT(psnr(decoded(jpeg(source, 0.9)), source), high) << width;
  }
  EXPECT_GT(psnr(decoded(jpeg(picture(640, 480), 0.9)), picture(640, 480)), 34);
}

TEST(JPEG, IsMadeFromTheFactorAndTheColours) {
  const Bitmap source = picture(17, 31);
  for (const auto& [factor, sampling] :
       {std::pair{0.0, 0x22}, {0.49, 0x22}, {0.5, 0x21}, {0.79, 0x21}, {0.8, 0x11}, {1.0, 0x11}}) {
    const Data file = jpeg(source, factor);
    const std::size_t frame = segment(file, 0xC0);
    EXPECT_EQ(file[frame + 11], sampling) << factor;
    EXPECT_TRUE(file[frame + 14] == 0x11 && file[frame + 17] == 0x11);
  }
  for (const double factor : {-1.0, nan, -infinity}) {
    EXPECT_EQ(jpeg(source, factor), jpeg(source, 0));
  }
  for (const double factor : {7.0, infinity}) EXPECT_EQ(jpeg(source, factor), jpeg(source, 1));
  EXPECT_EQ(jpeg(translucent(17, 31), 0.9), jpeg(source, 0.9));
  EXPECT_LT(jpeg(plain(16, 16, 99), 0.8).size(), 400);
  for (const auto& [width, height] : {std::pair<Side, Side>{65501, 1}, {1, 65501}}) {
    EXPECT_EQ(NSImage::fromBitmap(plain(width, height, 0))->jpegRepresentation(1), std::nullopt);
  }
}

TEST(JPEG, IsMadeAnewForAnotherFactorOrPicture) {
  const auto image = NSImage::fromBitmap(plain(64, 64, 99)),
             other = NSImage::fromBitmap(picture(64, 64));
  const auto first = image->jpegRepresentation(0.8F);
  EXPECT_NE(image->jpegRepresentation(0.2F), first);
  EXPECT_EQ(image->jpegRepresentation(0.8F), first);
  const CGRect whole{{}, image->size()};
  image->draw(*other, whole, whole);
  EXPECT_EQ(image->jpegRepresentation(0.8F), other->jpegRepresentation(0.8F));
}

TEST(JPEG, ReadsOtherKindsOfColour) {
  const auto adobe = [](int transform) {
    return std::vector<int>{0xFF, 0xEE, 0,   14, 'A', 'd', 'o', 'b',
                            'e',  0,    100, 0,  0,   0,   0,   transform};
  };
  const auto expect = [](const Data& file, const Data& pixel) {
    const Data pixels = decoded(file).pixels;
    ASSERT_EQ(pixels.size(), 20U * 12U * 4U);
    EXPECT_TRUE(std::equal(pixel.begin(), pixel.end(), pixels.begin())) << int{pixel[0]};
    EXPECT_TRUE(std::equal(pixel.begin(), pixel.end(), pixels.end() - 4)) << int{pixel[0]};
  };
  expect(plainJPEG({200}, 20, 12), {200, 200, 200, 255});
  expect(plainJPEG({90, 128, 128}, 20, 12, 4), {90, 90, 90, 255});
  expect(plainJPEG({200, 100, 50, 40}, 20, 12), {173, 131, 46, 255});
  expect(plainJPEG({200, 100, 50, 40}, 20, 12, 0, adobe(0)), {8, 16, 31, 255});
  expect(plainJPEG({200, 128, 128, 40}, 20, 12, 0, adobe(2)), {9, 9, 9, 255});
}

TEST(JPEG, IsTheSameWhenMadeAndReadInStrips) {
  for (const auto& [width, height] : {std::pair<std::int64_t, std::int64_t>{33, 300}, {640, 129}}) {
    const Bitmap bitmap = picture(width, height);
    for (const float factor : {0.3F, 0.6F, 0.9F}) {
      const Data file = ImageCodec::encodeJPEG(bitmap, factor, 1).value();
      for (const std::size_t most : {2U, 3U, 100U}) {
        EXPECT_EQ(ImageCodec::encodeJPEG(bitmap, factor, most), file);
        EXPECT_EQ(ImageCodec::decodeJPEG(file, most)->pixels,
                  ImageCodec::decodeJPEG(file, 1)->pixels);
      }
    }
  }
}

TEST(PNG, KeepsEveryPixel) {
  for (const auto& [width, height] : {std::pair<Side, Side>{1, 1}, {3, 5}, {17, 31}, {640, 480}}) {
    const Bitmap source = translucent(width, height);
    EXPECT_TRUE(equal(decoded(png(source)), source));
  }
}

// --- Damaged and hostile files ---

TEST(Decoding, TakesWholePicturesOnly) {
  for (const Data& file : {jpeg(picture(17, 31), 0.4), jpeg(picture(17, 31), 0.9),
                           plainJPEG({100, 128, 128}, 8, 8, 5), png(picture(17, 31))}) {
    ASSERT_TRUE(isImage(file));
    for (auto end = file.begin(); end != file.end(); ++end) {
      EXPECT_FALSE(isImage(Data(file.begin(), end))) << end - file.begin();
    }
    for (std::size_t i = 0; i < file.size() * 8; ++i) {
      Data flipped = file;
      flipped[i / 8] = static_cast<std::uint8_t>(flipped[i / 8] ^ 1 << i % 8);
      const auto bitmap = ImageCodec::decode(flipped);  // damaged or not, and never a part
      EXPECT_TRUE(!bitmap || NSImage::fromBitmap(*bitmap)) << i;
    }
    EXPECT_TRUE(equal(decoded(stuffed(file, file.size(), 100)), decoded(file)));
  }
  EXPECT_FALSE(isImage(plainJPEG({100, 128, 128}, 8, 8, 3)));  // nothing but the mean of one colour
  for (const char* text : {"text", "\xFF\xD8\xFF", "\x89PNG\r\n\x1A\n"}) {
    EXPECT_FALSE(isImage(bytes(text)));
  }
}

TEST(Decoding, ForgivesStrayBytesBetweenSegmentsAndAFewBeforeTheEnd) {
  for (const double factor : {0.4, 0.9}) {
    const Data file = jpeg(picture(17, 31), factor);
    for (const int marker : {0xDB, 0xC0, 0xC4, 0xDA}) {
      EXPECT_TRUE(equal(decoded(stuffed(file, segment(file, marker), 50)), decoded(file)));
    }
    EXPECT_TRUE(equal(decoded(stuffed(file, file.size() - 2, 16)), decoded(file)));
    // The decoder takes up to seven with the last pixels, and does not count them.
    EXPECT_FALSE(isImage(stuffed(file, file.size() - 2, 16 + 7 + 1)));
  }
  const Data progressive = plainJPEG({100, 128, 128}, 8, 8, 5);
  EXPECT_FALSE(isImage(stuffed(progressive, progressive.size() - 2, 16)));
}

TEST(Decoding, RefusesWhatWouldCostTooMuch) {
  EXPECT_TRUE(isImage(plainJPEG({100, 128, 128}, 8, 8, 100)));
  EXPECT_FALSE(isImage(plainJPEG({100, 128, 128}, 8, 8, 101)));
  EXPECT_TRUE(isImage(plainJPEG({100, 128, 128}, 800, 801, 4)));
  const Data large = plainJPEG({128}, 16384, 8192);
  const Data largeInMemory = plainJPEG({128, 128, 128}, 12000, 10000, 4);
  Data largePNG = png(picture(17, 31));
  // 20,000 by 20,000 pixels, and what the file says of them, with its checksum.
  const Data header{0, 0, 0x4E, 0x20, 0, 0, 0x4E, 0x20, 8, 6, 0, 0, 0, 0xE3, 0x70, 0x46, 0x39};
  std::copy(header.begin(), header.end(), largePNG.begin() + 16);
  const auto peakMemory = [] {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
  };
  const auto before = peakMemory();
  for (const Data& file : {large, largeInMemory, largePNG}) EXPECT_FALSE(isImage(file));
  EXPECT_LT(peakMemory() - before, 100'000);  // kilobytes: none was begun
}

// --- Images ---

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
