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

/// An X11 display's screen: what changes on it, and pictures of it with the pointer drawn in. The
/// server copies the pixels into memory that it shares with us, so it has to run on this machine.
/// For one thread. Whatever the display refuses is thrown as program::Trouble.
class Screen {
 public:
  /// Opens a display as X(7) names it; an empty name stands for the environment's DISPLAY.
  explicit Screen(const std::string& display);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  /// The whole screen. Its size may be another after changes().
  [[nodiscard]] PixelRect bounds() const { return bounds_; }

  /// The rectangles that have changed since the last call, in no order; they may overlap.
  std::vector<PixelRect> changes();

  /// Takes the pixels of an area as they are now. False when the screen has another size by now,
  /// which changes() will tell.
  [[nodiscard]] bool grab(const PixelRect& area);

  /// A picture of a part of the area that was grabbed last.
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
  int number_ = 0;  // of the screen, among those of the display
  xcb_connection_t* const connection_;
  xcb_screen_t* screen_ = nullptr;
  xcb_damage_damage_t damage_ = 0;
  xcb_xfixes_region_t region_ = 0;  // what was damaged
  PixelRect bounds_;

  xcb_shm_seg_t segment_ = 0;
  const std::uint8_t* pixels_ = nullptr;  // of grabbed_, B G R and a byte without meaning each
  PixelRect grabbed_;
  Pointer pointer_;
};

}  // namespace screenshare
