#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <cmath>

#include "Tarnwick/Platform/ImageCodec.hpp"
#include "Tarnwick/Platform/JPEGStrips.hpp"
#include "Tarnwick/Tarnwick.hpp"
#include "Tests/ImageFiles.hpp"
#include "Tests/Pictures.hpp"

namespace tarnwick::test {
namespace {

using Side = std::int64_t;

Data jpeg(const Bitmap& bitmap, double factor) {
  return NSImage::fromBitmap(bitmap)->jpegRepresentation(static_cast<float>(factor)).value();
}

Data png(const Bitmap& bitmap) { return NSImage::fromBitmap(bitmap)->pngRepresentation().value(); }

Bitmap decoded(const Data& file) { return ImageCodec::decode(file).value_or(Bitmap{}); }

bool isImage(const Data& file) { return NSImage::fromData(file) != nullptr; }

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
  constexpr double infinity = std::numeric_limits<double>::infinity();
  for (const double factor : {-1.0, std::nan(""), -infinity}) {
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
  // At a factor of 0.9, a row has 5, 33, 67 or 69 units, and a group 7, 1, 32 or 2 rows.
  for (const auto& [width, height] :
       {std::pair<Side, Side>{33, 300}, {260, 61}, {536, 260}, {549, 129}}) {
    const Bitmap bitmap = picture(width, height);
    for (const float factor : {0.3F, 0.6F, 0.9F}) {
      const Data file = ImageCodec::encodeJPEG(bitmap, factor, 1).value();
      const Data pixels = ImageCodec::decodeJPEG(file, 1)->pixels;
      for (const std::size_t most : {2U, 3U, 100U}) {
        EXPECT_EQ(ImageCodec::encodeJPEG(bitmap, factor, most), file);
        EXPECT_EQ(ImageCodec::decodeJPEG(file, most)->pixels, pixels);
      }
      EXPECT_EQ(cutIntoStrips(file, 2).size(), factor < 0.5F ? 0 : 2) << width;
    }
  }
}

TEST(JPEG, HasNoPieceThatReadsAsText) {
  struct Place {
    int x, y, colour;
    double across, down;
  };
  using Level = double (*)(const Place&);
  constexpr std::array<Level, 8> pictures{
      [](const Place&) { return 255.0; },
      [](const Place& at) { return 240.0 - 10 * at.colour; },
      [](const Place& at) { return 255 * (1 - at.across); },
      [](const Place& at) { return 255 - at.down * (60 + 50 * at.colour); },
      [](const Place& at) { return 100 * at.across + 155 * at.down * at.colour / 2; },
      [](const Place& at) { return at.x / 8 % 2 * 200.0; },
      [](const Place& at) { return at.x % 16 < 3 ? 20.0 : 240.0; },
      [](const Place& at) { return at.y % 18 < 10 && at.x * at.y % 7 < 2 ? 20.0 : 250.0; }};
  for (const int width : {640, 1072, 3840, 12000}) {
    Bitmap bitmap = plain(width, 384'000 / width, 255);
    for (std::size_t kind = 0; kind < pictures.size(); ++kind) {
      for (std::size_t i = 0; i < bitmap.pixels.size(); ++i) {
        const int at = static_cast<int>(i) / 4, x = at % width, y = at / width;
        const Place place{x, y, static_cast<int>(i % 4), double(x) / width, y / 4000.0};
        bitmap.pixels[i] = static_cast<std::uint8_t>(pictures[kind](place));
      }
      for (const float factor : {0.5F, 0.8F, 0.95F}) {
        const Data file = ImageCodec::encodeJPEG(bitmap, factor).value();
        for (const std::ptrdiff_t size : {1400, 1500, 3000}) {
          for (auto from = file.begin(); file.end() - from > size; from += 100) {
            ASSERT_TRUE(RxImageUDP::classify({from, from + size}).payload)
                << width << ' ' << kind << ' ' << factor << ' ' << from - file.begin();
          }
        }
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

}  // namespace
}  // namespace tarnwick::test
