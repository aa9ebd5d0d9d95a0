// Measures encoding, decoding and scaling against direct calls of libjpeg-turbo and zimg on one
// core, and cropping against a plain copy.
#include <Tarnwick/Tarnwick.hpp>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// <jpeglib.h> needs <cstdio> and does not include it.
#include <jpeglib.h>

#include <zimg.h>

#include <memory>
#include <thread>

#include "Comparison.hpp"
#include "Desktop.hpp"
#include "Tarnwick/Platform/JPEGStrips.hpp"

namespace tarnwick::benchmarks {
namespace {

int qualityOf(float factor) { return static_cast<int>(std::lround(factor * 100)); }

/// Encodes with libjpeg-turbo alone, with the restart markers of our own files or without any.
Data encodeDirectly(const Bitmap& bitmap, float factor, bool hasMarkers = true) {
  jpeg_compress_struct info;
  jpeg_error_mgr errors;
  info.err = jpeg_std_error(&errors);
  jpeg_create_compress(&info);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&info, &bytes, &size);
  info.image_width = static_cast<JDIMENSION>(bitmap.width);
  info.image_height = static_cast<JDIMENSION>(bitmap.height);
  info.input_components = 4;
  info.in_color_space = JCS_EXT_BGRX;
  jpeg_set_defaults(&info);
  const int quality = qualityOf(factor);
  jpeg_set_quality(&info, quality, TRUE);
  info.comp_info[0].h_samp_factor = quality < 80 ? 2 : 1;
  info.comp_info[0].v_samp_factor = quality < 50 ? 2 : 1;
  const std::int64_t unitWidth = std::int64_t{8} * info.comp_info[0].h_samp_factor;
  const std::int64_t unitsInRow = (bitmap.width + unitWidth - 1) / unitWidth;
  if (hasMarkers) info.restart_interval = static_cast<unsigned>(restartInterval(unitsInRow));
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    auto* row = const_cast<JSAMPLE*>(bitmap.row(info.next_scanline));
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  Data file(bytes, bytes + size);
  jpeg_destroy_compress(&info);
  std::free(bytes);
  return file;
}

Bitmap decodeDirectly(const Data& file) {
  jpeg_decompress_struct info;
  jpeg_error_mgr errors;
  info.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, file.data(), file.size());
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_EXT_BGRA;
  jpeg_start_decompress(&info);
  Bitmap bitmap{info.output_width, info.output_height, {}};
  bitmap.pixels.resize(bitmap.rowBytes() * info.output_height);
  while (info.output_scanline < info.output_height) {
    JSAMPLE* row = bitmap.row(info.output_scanline);
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return bitmap;
}

void addCodec(std::int64_t width, std::int64_t height) {
  const Bitmap bitmap = desktop(width, height);
  const double goal = std::thread::hardware_concurrency() > 1 ? 0.6 : 1.02;
  const std::string sides = std::to_string(width) + "x" + std::to_string(height);
  for (const float factor : {0.5F, 0.8F, 0.95F}) {
    const std::string what = sides + " at " + std::to_string(factor).substr(0, 4);
    compare(
        "encoding " + what, {goal},
        [bitmap, factor](benchmark::State& state) {
          for (auto _ : state) {
            state.PauseTiming();
            const auto image = NSImage::fromBitmap(bitmap);  // holds no JPEG file yet
            state.ResumeTiming();
            benchmark::DoNotOptimize(image->jpegRepresentation(factor));
          }
        },
        [bitmap, factor](benchmark::State& state) {
          for (auto _ : state) benchmark::DoNotOptimize(encodeDirectly(bitmap, factor));
        });
    const Data file = encodeDirectly(bitmap, factor);
    compare(
        "decoding " + what, {goal},
        [file](benchmark::State& state) {
          for (auto _ : state) benchmark::DoNotOptimize(NSImage::fromData(file));
        },
        [file](benchmark::State& state) {
          for (auto _ : state) benchmark::DoNotOptimize(decodeDirectly(file));
        });
  }
}

void addForeign() {
  const Data file = encodeDirectly(desktop(1920, 1080), 0.75F, false);
  compare(
      "decoding 1920x1080 of other encoders, without restart markers", {1.02},
      [file](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(NSImage::fromData(file));
      },
      [file](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(decodeDirectly(file));
      });
}

void addCrop() {
  constexpr std::int64_t width = 640, height = 480, left = 100, top = 100;
  const Bitmap bitmap = desktop(1920, 1080);
  const std::shared_ptr<NSImage> image = NSImage::fromBitmap(bitmap);
  compare(
      "crop 640x480 of 1920x1080", {1.1},
      [image](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(crop(*image, {{left, top}, {width, height}}));
      },
      [bitmap](benchmark::State& state) {
        constexpr std::int64_t rowBytes = width * Bitmap::bytesPerPixel;
        for (auto _ : state) {
          Data cut(std::size_t{rowBytes * height});
          for (std::int64_t y = 0; y < height; ++y) {
            std::memcpy(cut.data() + y * rowBytes,
                        bitmap.row(y + top) + left * Bitmap::bytesPerPixel, rowBytes);
          }
          benchmark::DoNotOptimize(cut.data());
        }
      });
}

/// Three planes of bytes, each of which zimg reads or writes as a whole.
struct Planes {
  Planes(unsigned width, unsigned height) {
    zimg_image_format_default(&format, ZIMG_API_VERSION);
    format.width = width;
    format.height = height;
    format.pixel_type = ZIMG_PIXEL_BYTE;
    format.color_family = ZIMG_COLOR_RGB;
    format.matrix_coefficients = ZIMG_MATRIX_RGB;
    format.pixel_range = ZIMG_RANGE_FULL;
    for (auto& plane : samples) {
      plane.reset(static_cast<std::uint8_t*>(std::aligned_alloc(64, std::size_t{width} * height)));
      std::memset(plane.get(), 0x40, std::size_t{width} * height);
    }
  }
  template <typename Buffer>
  [[nodiscard]] Buffer description() const {
    Buffer buffer{};
    buffer.version = ZIMG_API_VERSION;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      buffer.plane[i].data = samples[i].get();
      buffer.plane[i].stride = format.width;
      buffer.plane[i].mask = ZIMG_BUFFER_MAX;
    }
    return buffer;
  }

  zimg_image_format format{};
  std::array<std::unique_ptr<std::uint8_t, decltype(&std::free)>, 3> samples{
      {{nullptr, std::free}, {nullptr, std::free}, {nullptr, std::free}}};
};

void resizeDirectly(const Planes& source, const Planes& target) {
  zimg_graph_builder_params params;
  zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
  params.resample_filter = ZIMG_RESIZE_LANCZOS;
  params.filter_param_a = 3;
  params.cpu_type = ZIMG_CPU_AUTO_64B;
  auto* const graph = zimg_filter_graph_build(&source.format, &target.format, &params);
  std::size_t size = 0;
  zimg_filter_graph_get_tmp_size(graph, &size);
  constexpr std::size_t alignment = 64;
  void* const work = std::aligned_alloc(alignment, (size / alignment + 1) * alignment);
  const auto read = source.description<zimg_image_buffer_const>();
  const auto written = target.description<zimg_image_buffer>();
  zimg_filter_graph_process(graph, &read, &written, work, nullptr, nullptr, nullptr, nullptr);
  std::free(work);
  zimg_filter_graph_free(graph);
}

void addResize() {
  const Bitmap bitmap = desktop(3840, 2160);
  compare(
      "resize 3840x2160 to 1920x1080", {1.1},
      [bitmap](benchmark::State& state) {
        const auto image = NSImage::fromBitmap(bitmap);
        for (auto _ : state) {
          image->setSize({3840, 2160});
          benchmark::DoNotOptimize(resize(*image, {1920, 1080}));
        }
      },
      [](benchmark::State& state) {
        const Planes source(3840, 2160), target(1920, 1080);
        for (auto _ : state) resizeDirectly(source, target);
      });
}

}  // namespace

void addImages() {
  addCodec(1920, 1080);
  addCodec(3840, 2160);
  addForeign();
  addCrop();
  addResize();
}

}  // namespace tarnwick::benchmarks
