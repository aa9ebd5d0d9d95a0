#include "Screenshare/Screen.hpp"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdlib>
#include <utility>

#include "Program/Trouble.hpp"

namespace screenshare {
namespace {

using program::Trouble;

constexpr std::int64_t bytesPerPixel = tarnwick::Bitmap::bytesPerPixel;

struct Free {
  void operator()(void* reply) const { std::free(reply); }
};
template <typename Reply>
using Owned = std::unique_ptr<Reply, Free>;

/// Sets alpha to opaque: the server leaves the fourth byte of a pixel undefined.
void makeOpaque(tarnwick::Data& pixels) {
  for (std::size_t i = 3; i < pixels.size(); i += bytesPerPixel) pixels[i] = 255;
}

/// Returns `display` or, if that is empty, the value of the variable DISPLAY.
std::string nameOf(const std::string& display) {
  const char* const usual = std::getenv("DISPLAY");
  return display.empty() && usual != nullptr ? usual : display;
}

std::uint8_t channel(std::uint32_t pixel, int index) {
  return static_cast<std::uint8_t>(pixel >> (8 * index));
}

}  // namespace

Screen::Screen(const std::string& display)
    : name_(nameOf(display)),
      connection_(xcb_connect(name_.empty() ? nullptr : name_.c_str(), &number_)) {
  if (xcb_connection_has_error(connection_) != 0) {
    xcb_disconnect(connection_);
    throw Trouble(name_.empty() ? "there is no display: name one with --display, like :0"
                                : "cannot open display " + name_ +
                                      ": see that it runs and lets you in, or name another with "
                                      "--display");
  }
  try {
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
    for (int i = 0; i < number_; ++i) xcb_screen_next(&screens);
    screen_ = screens.data;
    requireExtensions();
    requirePixelFormat();
    watch();
    shareMemory();
  } catch (...) {
    xcb_disconnect(connection_);
    throw;
  }
}

Screen::~Screen() {
  unshareMemory();
  xcb_disconnect(connection_);
}

/// Checks the extensions. DAMAGE and XFIXES work only after a request for their version.
void Screen::requireExtensions() {
  for (auto* id : {&xcb_damage_id, &xcb_shm_id, &xcb_xfixes_id}) {
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(connection_, id);
    if (extension && extension->present != 0) continue;
    throw Trouble("display " + name_ + " lacks one of the extensions DAMAGE, MIT-SHM and XFIXES");
  }
  const Owned<xcb_damage_query_version_reply_t> damageVersion(xcb_damage_query_version_reply(
      connection_,
      xcb_damage_query_version(connection_, XCB_DAMAGE_MAJOR_VERSION, XCB_DAMAGE_MINOR_VERSION),
      nullptr));
  const Owned<xcb_xfixes_query_version_reply_t> fixesVersion(xcb_xfixes_query_version_reply(
      connection_,
      xcb_xfixes_query_version(connection_, XCB_XFIXES_MAJOR_VERSION, XCB_XFIXES_MINOR_VERSION),
      nullptr));
  if (!damageVersion || !fixesVersion) giveUp();
}

void Screen::requirePixelFormat() const {
  const xcb_setup_t* setup = xcb_get_setup(connection_);
  bool isKnown = setup->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST;
  for (auto format = xcb_setup_pixmap_formats_iterator(setup); format.rem > 0;
       xcb_format_next(&format)) {
    if (format.data->depth != screen_->root_depth) continue;
    isKnown = isKnown && format.data->bits_per_pixel == 8 * bytesPerPixel;
  }
  constexpr int depth = 24;  // eight bits per colour
  if (!isKnown || screen_->root_depth != depth) {
    throw Trouble("display " + name_ + " is not 24 bits deep: set it to millions of colours");
  }
}

void Screen::watch() {
  const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;  // reports the size
  xcb_change_window_attributes(connection_, screen_->root, XCB_CW_EVENT_MASK, &events);
  damage_ = xcb_generate_id(connection_);
  xcb_damage_create(connection_, damage_, screen_->root, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
  region_ = xcb_generate_id(connection_);
  xcb_xfixes_create_region(connection_, region_, 0, nullptr);
  const Owned<xcb_get_geometry_reply_t> geometry(
      xcb_get_geometry_reply(connection_, xcb_get_geometry(connection_, screen_->root), nullptr));
  if (!geometry) giveUp();
  bounds_ = {0, 0, geometry->width, geometry->height};
}

void Screen::shareMemory() {
  const auto size = static_cast<std::size_t>(bytesPerPixel * bounds_.width * bounds_.height);
  const int memory = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
  void* const address = shmat(memory, nullptr, 0);
  segment_ = xcb_generate_id(connection_);
  const Owned<xcb_generic_error_t> error(xcb_request_check(
      connection_,
      xcb_shm_attach_checked(connection_, segment_, static_cast<std::uint32_t>(memory), 0)));
  shmctl(memory, IPC_RMID, nullptr);  // frees it when the server and we have detached
  if (error || reinterpret_cast<std::intptr_t>(address) == -1) {
    throw Trouble("display " + name_ + " shares no memory with us: run where its server runs");
  }
  pixels_ = static_cast<const std::uint8_t*>(address);
}

void Screen::unshareMemory() {
  xcb_shm_detach(connection_, segment_);
  shmdt(pixels_);
}

std::vector<PixelRect> Screen::changes() {
  std::vector<PixelRect> changed;
  readDamage(changed);
  movePointer(changed);
  readEvents(changed);
  return changed;
}

/// Reads and resets the damage in one request, so that no change is lost in between. An event would
/// report a place only once, even if it was drawn to again after the grab.
void Screen::readDamage(std::vector<PixelRect>& changed) {
  xcb_damage_subtract(connection_, damage_, XCB_NONE, region_);
  const Owned<xcb_xfixes_fetch_region_reply_t> reply(xcb_xfixes_fetch_region_reply(
      connection_, xcb_xfixes_fetch_region(connection_, region_), nullptr));
  if (!reply) giveUp();
  const xcb_rectangle_t* const areas = xcb_xfixes_fetch_region_rectangles(reply.get());
  for (int i = 0; i < xcb_xfixes_fetch_region_rectangles_length(reply.get()); ++i) {
    changed.push_back({areas[i].x, areas[i].y, areas[i].width, areas[i].height});
  }
}

void Screen::readEvents(std::vector<PixelRect>& changed) {
  PixelRect bounds = bounds_;
  while (const Owned<xcb_generic_event_t> event{xcb_poll_for_event(connection_)}) {
    const int type = event->response_type & 0x7f;  // the highest bit tells whether a client sent it
    if (type != XCB_CONFIGURE_NOTIFY) continue;
    const auto* notice = reinterpret_cast<const xcb_configure_notify_event_t*>(event.get());
    if (notice->window == screen_->root) bounds = {0, 0, notice->width, notice->height};
  }
  if (bounds == bounds_) return;
  unshareMemory();
  bounds_ = bounds;
  shareMemory();
  changed = {bounds_};
}

void Screen::movePointer(std::vector<PixelRect>& changed) {
  const Owned<xcb_xfixes_get_cursor_image_reply_t> reply(xcb_xfixes_get_cursor_image_reply(
      connection_, xcb_xfixes_get_cursor_image(connection_), nullptr));
  if (!reply) giveUp();
  const PixelRect bounds{reply->x - reply->xhot, reply->y - reply->yhot, reply->width,
                         reply->height};
  if (bounds == pointer_.bounds && reply->cursor_serial == pointer_.serial) return;
  changed.push_back(pointer_.bounds);
  changed.push_back(bounds);
  const std::uint32_t* const pixels = xcb_xfixes_get_cursor_image_cursor_image(reply.get());
  const int count = xcb_xfixes_get_cursor_image_cursor_image_length(reply.get());
  pointer_ = {bounds, reply->cursor_serial, {pixels, pixels + count}};
}

bool Screen::grab(const PixelRect& area) {
  constexpr std::uint32_t allPlanes = ~0U;
  const Owned<xcb_shm_get_image_reply_t> reply(xcb_shm_get_image_reply(
      connection_,
      xcb_shm_get_image(connection_, screen_->root, static_cast<std::int16_t>(area.x),
                        static_cast<std::int16_t>(area.y), static_cast<std::uint16_t>(area.width),
                        static_cast<std::uint16_t>(area.height), allPlanes,
                        XCB_IMAGE_FORMAT_Z_PIXMAP, segment_, 0),
      nullptr));
  if (!reply && xcb_connection_has_error(connection_) != 0) giveUp();
  grabbed_ = area;
  return reply != nullptr;
}

std::shared_ptr<tarnwick::NSImage> Screen::picture(const PixelRect& part) const {
  tarnwick::Bitmap bitmap{part.width, part.height, {}};
  bitmap.pixels.reserve(bitmap.rowBytes() * static_cast<std::size_t>(part.height));
  for (int y = part.y; y < part.y + part.height; ++y) {
    const std::int64_t first =
        std::int64_t{y - grabbed_.y} * grabbed_.width + (part.x - grabbed_.x);
    const std::uint8_t* const row = pixels_ + first * bytesPerPixel;
    bitmap.pixels.insert(bitmap.pixels.end(), row, row + bitmap.rowBytes());
  }
  makeOpaque(bitmap.pixels);
  drawPointer(bitmap, part);
  return tarnwick::NSImage::fromBitmap(std::move(bitmap));
}

void Screen::drawPointer(tarnwick::Bitmap& bitmap, const PixelRect& part) const {
  const PixelRect visible = pointer_.bounds.intersection(part);
  const std::uint32_t* const pixels = pointer_.pixels.data();
  for (int y = visible.y; y < visible.y + visible.height; ++y) {
    for (int x = visible.x; x < visible.x + visible.width; ++x) {
      const int index = (y - pointer_.bounds.y) * pointer_.bounds.width + (x - pointer_.bounds.x);
      const std::uint32_t source = pixels[index];
      std::uint8_t* const target = bitmap.row(y - part.y) + (x - part.x) * bytesPerPixel;
      const int rest = 255 - channel(source, 3);
      for (int i = 0; i < 3; ++i) {
        target[i] = static_cast<std::uint8_t>(channel(source, i) + target[i] * rest / 255);
      }
    }
  }
}

void Screen::giveUp() const { throw Trouble("display " + name_ + " does not answer any more"); }

}  // namespace screenshare
