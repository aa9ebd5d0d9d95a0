#include "Demo/DemoPictures.hpp"

#include <fstream>
#include <future>
#include <iostream>
#include <iterator>
#include <utility>

#include "Demo/DemoDesktop.hpp"
#include "Demo/DemoLandscape.hpp"

namespace demo {
namespace {

constexpr tarnwick::CGRect largeScreen{{0, 0}, {3840, 2160}};

std::shared_ptr<tarnwick::NSImage> drawLargeScreen() {
  Canvas canvas(3840, 2160);
  canvas.shade(largeScreen, [](double u, double v) { return dusk.colourAt(u, v, 5); });
  return canvas.takeImage();
}

/// Returns the position of picture `index`. Each picture is a step further, so that no two have the
/// same rectangle.
tarnwick::CGPoint cascaded(std::size_t index) {
  constexpr std::size_t step = 40;
  const auto offset = static_cast<tarnwick::CGFloat>(index * step);
  return {offset, offset};
}

}  // namespace

std::vector<Picture> drawnPictures() {
  auto large = std::async(std::launch::async, drawLargeScreen);
  const Picture desktop{"desktop", Desktop::draw(), Desktop::screen, true};
  return {desktop,
          regionOf(desktop, "editor", Desktop::editor),
          regionOf(desktop, "photo", Desktop::photo),
          regionOf(desktop, "terminal", Desktop::terminal),
          regionOf(desktop, "chart", Desktop::chart),
          {"4K picture", large.get(), largeScreen}};
}

std::vector<Picture> loadedPictures(const std::vector<std::string>& files) {
  std::vector<Picture> pictures;
  for (const std::string& file : files) {
    auto image = loadPicture(file);
    if (!image) {
      std::cerr << "demo: " << file << " is no picture\n";
      continue;
    }
    if (!image->jpegRepresentation(0)) {
      std::cerr << "demo: " << file << " has a side too long for JPEG\n";
      continue;
    }
    const tarnwick::CGRect rect{cascaded(pictures.size()), image->size()};
    pictures.push_back({std::filesystem::path(file).filename().string(), std::move(image), rect,
                        pictures.empty()});
  }
  return pictures;
}

std::shared_ptr<tarnwick::NSImage> loadPicture(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return tarnwick::NSImage::fromData({std::istreambuf_iterator<char>(stream), {}});
}

Picture regionOf(const Picture& picture, std::string name, const tarnwick::CGRect& rect) {
  const tarnwick::CGPoint origin{picture.rect.origin.x + rect.origin.x,
                                 picture.rect.origin.y + rect.origin.y};
  return {std::move(name), tarnwick::crop(*picture.image, rect), {origin, rect.size}};
}

}  // namespace demo
