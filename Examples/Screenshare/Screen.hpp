#pragma once

#include <xcb/damage.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Screenshare/PixelRect.hpp"

namespace screenshare {

/// Reports the changes of an X11 display's screen and takes pictures of it, pointer included. The
/// server copies the pixels into shared memory, so it must run on this machine. Throws
/// program::Trouble if the display fails. For one thread.
class Screen {
 public:
  /// Opens a display, named as in X(7). An empty name means the environment variable DISPLAY.
  explicit Screen(const std::string& display);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  /// The whole screen. Only changes() changes its size.
  [[nodiscard]] PixelRect bounds() const { return bounds_; }

  /// Returns the rectangles that have changed since the last call, in any order. They may overlap.
  std::vector<PixelRect> changes();

  /// Copies the current pixels of an area. Returns false if the server refuses, because the size of
  /// the screen has changed. The next changes() reports that.
  [[nodiscard]] bool grab(const PixelRect& area);

  /// Returns a picture of a part of the last grabbed area.
  [[nodiscard]] std::shared_ptr<tarnwick::NSImage> picture(const PixelRect& part) const;

 private:
  struct Pointer {
    PixelRect bounds;
    std::uint32_t serial = 0;           // of its shape
    std::vector<std::uint32_t> pixels;  // 0xAARRGGBB, the colours multiplied by alpha
  };

  void requireExtensions();
  void requirePixelFormat() const;
  void watch();
  void shareMemory();
  void unshareMemory();
  void readDamage(std::vector<PixelRect>& changed);
  void readEvents(std::vector<PixelRect>& changed);
  void movePointer(std::vector<PixelRect>& changed);
  void drawPointer(tarnwick::Bitmap& bitmap, const PixelRect& part) const;
  [[noreturn]] void giveUp() const;

  const std::string name_;
  int number_ = 0;  // of the screen on the display
  xcb_connection_t* const connection_;
  xcb_screen_t* screen_ = nullptr;
  xcb_damage_damage_t damage_ = 0;
  xcb_xfixes_region_t region_ = 0;  // the damaged part of the screen
  PixelRect bounds_;

  xcb_shm_seg_t segment_ = 0;
  const std::uint8_t* pixels_ = nullptr;  // of grabbed_: B, G, R and an unused byte each
  PixelRect grabbed_;
  Pointer pointer_;
};

}  // namespace screenshare
