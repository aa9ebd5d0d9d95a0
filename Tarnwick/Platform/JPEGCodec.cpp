#include <algorithm>
#include <atomic>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <span>
#include <vector>

// After <cstdio>, which jpeglib.h needs and does not include.
#include <jpeglib.h>

#include <jerror.h>

#include "Tarnwick/Platform/Concurrently.hpp"
#include "Tarnwick/Platform/ImageCodec.hpp"
#include "Tarnwick/Platform/JPEGStrips.hpp"

// libjpeg reports a failure by calling a function that must not return. That function calls
// longjmp, which skips destructors. Functions that call setjmp therefore own no object with a
// destructor; their callers own it.

namespace tarnwick {
namespace {

constexpr int scanLimit = 100;                          // of a progressive file
constexpr std::int64_t coefficientLimit = 512'000'000;  // in bytes, for one file
constexpr std::int64_t blockLimit = 40'000'000;  // over all scans: 10 for each block of the largest
                                                 // picture; encoders code a block 6 or 7 times
constexpr int extraneousByteLimit = 16;  // before a baseline file's end marker; the library does
                                         // not count those that it reads with the last pixels

/// The library's error handler. Ignores messages; a failure jumps to the caller's setjmp.
struct Errors : jpeg_error_mgr {
  std::jmp_buf failure{};

  Errors() : jpeg_error_mgr{} {
    jpeg_std_error(this);
    error_exit = fail;
    emit_message = [](j_common_ptr, int) {};
    output_message = [](j_common_ptr) {};
  }

  [[noreturn]] static void fail(j_common_ptr info) {
    std::longjmp(static_cast<Errors*>(info->err)->failure, 1);
  }
};

// --- Encoding ---

/// Encodes one file to a buffer that grows with realloc. The library's own memory destination leaks
/// its buffer if it cannot allocate a larger one, and a vector would throw through C functions.
struct Encoder : jpeg_destination_mgr {
  Errors errors;
  jpeg_compress_struct info{};
  JOCTET* bytes = nullptr;
  std::size_t capacity = 0;

  Encoder() : jpeg_destination_mgr{} {
    info.err = &errors;
    init_destination = grow;
    empty_output_buffer = [](j_compress_ptr compressor) -> boolean {
      grow(compressor);
      return TRUE;
    };
    term_destination = [](j_compress_ptr) {};
  }
  ~Encoder() {
    jpeg_destroy_compress(&info);
    std::free(bytes);
  }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  [[nodiscard]] std::size_t size() const { return capacity - free_in_buffer; }

 private:
  /// Called before the first byte, and whenever the buffer is full.
  static void grow(j_compress_ptr compressor) {
    constexpr std::size_t firstCapacity = 65536;
    auto& encoder = *static_cast<Encoder*>(compressor->dest);
    const std::size_t larger = std::max(firstCapacity, encoder.capacity * 2);
    void* bytes = std::realloc(encoder.bytes, larger);
    if (bytes == nullptr) Errors::fail(reinterpret_cast<j_common_ptr>(compressor));
    encoder.bytes = static_cast<JOCTET*>(bytes);
    encoder.next_output_byte = encoder.bytes + encoder.capacity;
    encoder.free_in_buffer = larger - encoder.capacity;
    encoder.capacity = larger;
  }
};

int qualityFrom(float compressionFactor) {
  if (std::isnan(compressionFactor)) return 1;
  return static_cast<int>(std::lround(std::clamp(100.0F * compressionFactor, 1.0F, 100.0F)));
}

// Colour has half the resolution in both directions at low quality, half the horizontal resolution
// at medium quality and full resolution at high quality, which coloured text needs.
int samplingAcross(int quality) { return quality < 80 ? 2 : 1; }
int samplingDown(int quality) { return quality < 50 ? 2 : 1; }

/// The number of MCUs in one row.
std::int64_t unitsInRow(const Bitmap& bitmap, int quality) {
  const std::int64_t unitWidth = std::int64_t{DCTSIZE} * samplingAcross(quality);
  return (bitmap.width + unitWidth - 1) / unitWidth;
}

/// 128 x 128 pixels. In smaller pictures the standard Huffman tables outweigh the content.
/// Optimised tables cost 0.1 ms and save 300 bytes, half of a 48 x 48 region.
constexpr std::int64_t smallPicture = 16'384;
bool isSmall(const Bitmap& bitmap) { return bitmap.width * bitmap.height <= smallPicture; }

/// In pixels. Encoding a strip of this size takes longer than starting its thread.
constexpr std::int64_t smallestStrip = 100'000;

bool compress(Encoder& encoder, const Bitmap& bitmap, const PixelRows& rows, int quality) {
  jpeg_compress_struct& info = encoder.info;
  if (setjmp(encoder.errors.failure) != 0) return false;
  jpeg_create_compress(&info);
  info.dest = &encoder;
  info.image_width = static_cast<JDIMENSION>(bitmap.width);
  info.image_height = static_cast<JDIMENSION>(rows.count);
  info.input_components = Bitmap::bytesPerPixel;
  info.in_color_space = JCS_EXT_BGRX;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  info.comp_info[0].h_samp_factor = samplingAcross(quality);
  info.comp_info[0].v_samp_factor = samplingDown(quality);
  info.dct_method = JDCT_ISLOW;
  // Flat and smooth areas can encode to valid UTF-8, and image receivers drop UTF-8 that is no
  // command. Restart markers prevent that: UTF-8 never contains the byte 0xFF.
  info.restart_interval = static_cast<unsigned>(restartInterval(unitsInRow(bitmap, quality)));
  info.optimize_coding = static_cast<boolean>(isSmall(bitmap));
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    // The library only reads the row; its interface lacks const.
    auto* row = const_cast<JSAMPROW>(bitmap.row(rows.first + info.next_scanline));
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  return true;
}

// --- Decoding ---

/// In bytes. Decoding a strip of this size takes longer than starting its thread.
constexpr std::size_t smallestStripFile = 8192;

struct Progress : jpeg_progress_mgr {
  std::int64_t blocks = 0;  // decoded so far

  Progress() : jpeg_progress_mgr{} {}
};

struct Decoder {
  Errors errors;
  jpeg_decompress_struct info{};
  Progress progress;

  Decoder() { info.err = &errors; }
  ~Decoder() { jpeg_destroy_decompress(&info); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
};

/// Whether the warning reports a few bytes before a baseline file's end, as some cameras write.
bool isPaddingBeforeEnd(const jpeg_decompress_struct& info) {
  const auto& parameters = info.err->msg_parm.i;  // the number of bytes, and the marker after them
  return info.err->msg_code == JWRN_EXTRANEOUS_DATA && info.progressive_mode == FALSE &&
         parameters[0] <= extraneousByteLimit && parameters[1] == JPEG_EOI;
}

/// After the scan has begun, every other warning means that the library would guess pixels.
void refuseDamage(j_common_ptr common, int level) {
  const bool isWarning = level < 0;
  if (isWarning && !isPaddingBeforeEnd(*reinterpret_cast<j_decompress_ptr>(common))) {
    Errors::fail(common);
  }
}

/// Called for each row of MCUs if the file has several scans.
void refuseTooMuchWork(j_common_ptr common) {
  const auto& info = *reinterpret_cast<j_decompress_ptr>(common);
  auto& progress = *static_cast<Progress*>(info.progress);
  for (int i = 0; i < info.comps_in_scan; ++i) {
    const jpeg_component_info& component = *info.cur_comp_info[i];
    progress.blocks += std::int64_t{component.width_in_blocks} * component.v_samp_factor;
  }
  if (info.input_scan_number > scanLimit || progress.blocks > blockLimit) Errors::fail(common);
}

/// The memory that the library needs for a file of several scans, in bytes.
std::int64_t coefficientBytes(const jpeg_decompress_struct& info) {
  std::int64_t blocks = 0;
  for (int i = 0; i < info.num_components; ++i) {
    const jpeg_component_info& component = info.comp_info[i];
    blocks += std::int64_t{component.width_in_blocks} * component.height_in_blocks;
  }
  return blocks * std::int64_t{sizeof(JBLOCK)};
}

/// Converts a row of CMYK pixels to BGRA. Files with an Adobe marker store the inks inverted.
void convertInks(const JSAMPLE* inks, std::uint8_t* pixels, JDIMENSION width, bool isInverted) {
  constexpr int full = 255;
  const auto light = [&](JSAMPLE ink) { return isInverted ? ink : full - ink; };
  for (JDIMENSION x = 0; x < width; ++x, inks += 4, pixels += Bitmap::bytesPerPixel) {
    const int black = light(inks[3]);
    for (int ink = 0; ink < 3; ++ink) {
      pixels[2 - ink] = static_cast<std::uint8_t>((light(inks[ink]) * black + full / 2) / full);
    }
    pixels[3] = full;
  }
}

/// Whether the file has every component and, if progressive, every bit of each coefficient. Call it
/// after the last scan: the library does not warn about missing components or bits.
bool isComplete(const jpeg_decompress_struct& info) {
  for (int i = 0; i < info.num_components; ++i) {
    if (info.comp_info[i].quant_table == nullptr) return false;
    if (info.progressive_mode == FALSE) continue;
    const int* missingBits = info.coef_bits[i];
    if (std::any_of(missingBits, missingBits + DCTSIZE2, [](int bits) { return bits != 0; })) {
      return false;
    }
  }
  return true;
}

bool readHeader(Decoder& decoder, const Data& file) {
  jpeg_decompress_struct& info = decoder.info;
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, file.data(), static_cast<unsigned long>(file.size()));
  jpeg_read_header(&info, TRUE);
  const bool holdsCoefficients = jpeg_has_multiple_scans(&info) != FALSE;
  // With arithmetic coding, which is rare, the library guesses missing data without a warning.
  return isWithinPixelLimit(info.image_width, info.image_height) && info.arith_code == FALSE &&
         (!holdsCoefficients || coefficientBytes(info) <= coefficientLimit);
}

/// Whether the header can be read and the picture has at most three components.
bool readSides(Decoder& decoder, const Data& file) {
  if (setjmp(decoder.errors.failure) != 0) return false;
  return readHeader(decoder, file) && decoder.info.num_components <= 3;
}

bool decompress(Decoder& decoder, const Data& file, Bitmap& bitmap) {
  jpeg_decompress_struct& info = decoder.info;
  if (setjmp(decoder.errors.failure) != 0) return false;
  if (!readHeader(decoder, file)) return false;
  const bool isInk = info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK;
  info.out_color_space = isInk ? JCS_CMYK : JCS_EXT_BGRA;
  info.dct_method = JDCT_ISLOW;
  decoder.errors.emit_message = refuseDamage;
  decoder.progress.progress_monitor = refuseTooMuchWork;
  info.progress = &decoder.progress;
  jpeg_start_decompress(&info);
  info.progress = nullptr;  // all scans are decoded; do not count the rows below
  if (!isComplete(info)) return false;
  bitmap.width = info.output_width;
  bitmap.height = info.output_height;
  bitmap.pixels.reserve(bitmap.rowBytes() * info.output_height);
  JSAMPARRAY inks = isInk ? info.mem->alloc_sarray(reinterpret_cast<j_common_ptr>(&info),
                                                   JPOOL_IMAGE, info.output_width * 4, 1)
                          : nullptr;
  while (info.output_scanline < info.output_height) {
    // Row by row, so that a truncated file touches no more memory than its rows fill.
    const std::int64_t y = info.output_scanline;
    bitmap.pixels.resize(bitmap.rowBytes() * static_cast<std::size_t>(y + 1));
    JSAMPROW row = bitmap.row(y);
    jpeg_read_scanlines(&info, isInk ? inks : &row, 1);
    if (isInk) convertInks(inks[0], row, info.output_width, info.saw_Adobe_marker != FALSE);
  }
  jpeg_finish_decompress(&info);
  return true;
}

/// Decodes a strip to its rows of `bitmap`. Returns false if anything is damaged.
bool decompressStrip(Decoder& decoder, const StripFile& strip, Bitmap& bitmap) {
  jpeg_decompress_struct& info = decoder.info;
  if (setjmp(decoder.errors.failure) != 0) return false;
  if (!readHeader(decoder, strip.file)) return false;
  info.out_color_space = JCS_EXT_BGRA;
  info.dct_method = JDCT_ISLOW;
  decoder.errors.emit_message = [](j_common_ptr common, int level) {
    if (level < 0) Errors::fail(common);
  };
  jpeg_start_decompress(&info);
  JSAMPARRAY border = info.mem->alloc_sarray(reinterpret_cast<j_common_ptr>(&info), JPOOL_IMAGE,
                                             info.output_width * Bitmap::bytesPerPixel, 1);
  while (info.output_scanline < info.output_height) {
    const std::int64_t y = info.output_scanline;
    JSAMPROW row = y < strip.rows.count ? bitmap.row(strip.rows.first + y) : border[0];
    jpeg_read_scanlines(&info, &row, 1);
  }
  if (!strip.isLast) {
    // The last interval can hold units after the strip. The library would report their bytes as
    // surplus, so an end marker takes their place.
    static constexpr JOCTET ending[]{0xFF, JPEG_EOI};
    info.src->next_input_byte = ending;
    info.src->bytes_in_buffer = sizeof ending;
    info.unread_marker = 0;
  }
  jpeg_finish_decompress(&info);
  return true;
}

/// Decodes the file in strips. Absent if it cannot be cut into strips or a strip may be damaged:
/// the caller then decodes the file as a whole.
std::optional<Bitmap> decodeStrips(const Data& file, std::size_t most) {
  if (most < 2) return std::nullopt;
  const std::vector<StripFile> strips = cutIntoStrips(file, most);
  if (strips.size() < 2) return std::nullopt;
  std::vector<Decoder> decoders(strips.size() + 1);
  Decoder& whole = decoders.back();
  if (!readSides(whole, file)) return std::nullopt;
  Bitmap bitmap{whole.info.image_width, whole.info.image_height, {}};
  bitmap.pixels.resize(bitmap.rowBytes() * static_cast<std::size_t>(bitmap.height));
  std::atomic<bool> isWhole = true;
  concurrently(strips.size(), [&](std::size_t i) {
    if (!decompressStrip(decoders[i], strips[i], bitmap)) isWhole = false;
  });
  return isWhole ? std::optional(std::move(bitmap)) : std::nullopt;
}

}  // namespace

std::optional<Data> ImageCodec::encodeJPEG(const Bitmap& bitmap, float compressionFactor) {
  const auto most = static_cast<std::size_t>(bitmap.width * bitmap.height / smallestStrip);
  return encodeJPEG(bitmap, compressionFactor, std::min(processorCount(), most));
}

std::optional<Data> ImageCodec::encodeJPEG(const Bitmap& bitmap, float compressionFactor,
                                           std::size_t most) try {
  if (std::max(bitmap.width, bitmap.height) > JPEG_MAX_DIMENSION) return std::nullopt;
  const int quality = qualityFrom(compressionFactor);
  // A small picture is one strip: strips with tables of their own could not be joined.
  const std::size_t count = isSmall(bitmap) ? 1 : std::max<std::size_t>(most, 1);
  const std::int64_t units = unitsInRow(bitmap, quality);
  const std::int64_t groupHeight =
      rowsInGroup(restartInterval(units), units) * DCTSIZE * samplingDown(quality);
  const std::vector<PixelRows> rows = strips(bitmap.height, groupHeight, count);
  std::vector<Encoder> encoders(rows.size());
  std::atomic<bool> isEncoded = true;
  concurrently(rows.size(), [&](std::size_t i) {
    if (!compress(encoders[i], bitmap, rows[i], quality)) isEncoded = false;
  });
  if (!isEncoded) return std::nullopt;
  std::vector<std::span<const std::uint8_t>> files;
  files.reserve(encoders.size());
  for (const Encoder& encoder : encoders) files.emplace_back(encoder.bytes, encoder.size());
  return joinedStrips(files, bitmap.height);
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

std::optional<Bitmap> ImageCodec::decodeJPEG(const Data& file) {
  return decodeJPEG(file, std::min(processorCount(), file.size() / smallestStripFile));
}

std::optional<Bitmap> ImageCodec::decodeJPEG(const Data& file, std::size_t most) try {
  if (auto bitmap = decodeStrips(file, most)) return bitmap;
  Decoder decoder;
  Bitmap bitmap;
  if (!decompress(decoder, file, bitmap)) return std::nullopt;
  return bitmap;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

}  // namespace tarnwick
