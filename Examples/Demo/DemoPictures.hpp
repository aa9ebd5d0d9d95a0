#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace demo {

/// A picture to send, and the part of the screen that it shows, in pixels from the top left.
struct Picture {
  std::string name;
  std::shared_ptr<tarnwick::NSImage> image;
  tarnwick::CGRect rect;
  bool isFullScreen = false;
};

/// Returns a desktop, some regions of it, and a picture as large as a 4K screen.
std::vector<Picture> drawnPictures();

/// Loads JPEG and PNG files: the first as the full screen, the others as regions of it. Leaves out
/// files that cannot be read or sent and reports them on standard error.
std::vector<Picture> loadedPictures(const std::vector<std::string>& files);

/// Returns the picture in a file, or null if the file holds no picture.
std::shared_ptr<tarnwick::NSImage> loadPicture(const std::filesystem::path& file);

/// Returns the region `rect`, in pixels of the image from its top left, as a new picture.
Picture regionOf(const Picture& picture, std::string name, const tarnwick::CGRect& rect);

}  // namespace demo
