#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace demo {

/// A picture to send, and what it shows of the screen, in pixels from the top left.
struct Picture {
  std::string name;
  std::shared_ptr<tarnwick::NSImage> image;
  tarnwick::CGRect rect;
  bool isFullScreen = false;
};

/// A desktop, a few regions of it, and a picture of a 4K screen.
std::vector<Picture> drawnPictures();

/// The pictures in JPEG and PNG files: the first as the full screen, the others as regions of it.
/// Says on standard error which files hold none that can be sent, and leaves them out.
std::vector<Picture> loadedPictures(const std::vector<std::string>& files);

/// The picture in a file; null when there is none.
std::shared_ptr<tarnwick::NSImage> loadPicture(const std::filesystem::path& file);

/// The region `rect`, in pixels of the image from its top left, as a picture of its own.
Picture regionOf(const Picture& picture, std::string name, const tarnwick::CGRect& rect);

}  // namespace demo
