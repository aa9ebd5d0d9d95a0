#include "Screenview/Window.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "Program/Trouble.hpp"

namespace screenview {
namespace {

constexpr int firstWidth = 960, firstHeight = 540;  // of the window before there is a picture
constexpr int leastWidth = 160, leastHeight = 90;   // minimum size of the window

[[noreturn]] void throwDisplayTrouble() {
  throw program::Trouble(std::string("no window can be opened (") + SDL_GetError() +
                         "): run this in a desktop session, or use --save, which needs none");
}

/// Returns the window's bounds before the first picture: centred or, for full screen, the whole
/// display. Without a window manager, SDL's full-screen mode does not resize the window.
SDL_Rect firstBounds(bool isFullScreen) {
  SDL_Rect bounds{SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, firstWidth, firstHeight};
  if (isFullScreen) SDL_GetDisplayBounds(0, &bounds);
  return bounds;
}

std::string sizeText(int width, int height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

std::string rounded(double number, int decimals) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.*f", decimals, number);
  return text.data();
}

}  // namespace

SDLVideo::SDLVideo() {
  if (SDL_Init(SDL_INIT_VIDEO) != 0) throwDisplayTrouble();
  // Without a display, SDL falls back to a driver that draws to invisible memory.
  if (std::getenv("SDL_VIDEODRIVER") != nullptr) return;
  if (std::string_view(SDL_GetCurrentVideoDriver()) != "offscreen") return;
  SDL_Quit();
  SDL_SetError("there is no display");
  throwDisplayTrouble();
}

Window::Window(std::shared_ptr<Picture> picture, std::uint16_t port, bool isFullScreen)
    : picture_(std::move(picture)), port_(port) {
  SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "linear");
  const SDL_Rect bounds = firstBounds(isFullScreen);
  const Uint32 mode = isFullScreen ? SDL_WINDOW_FULLSCREEN_DESKTOP : 0;
  window_.reset(SDL_CreateWindow("screenview", bounds.x, bounds.y, bounds.w, bounds.h,
                                 SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI | mode));
  if (!window_) throwDisplayTrouble();
  SDL_GetWindowSize(window_.get(), &givenWidth_, &givenHeight_);
  SDL_SetWindowMinimumSize(window_.get(), leastWidth, leastHeight);
  renderer_.reset(SDL_CreateRenderer(window_.get(), -1, 0));
  if (!renderer_) throwDisplayTrouble();
  SDL_ShowCursor(isFullScreen ? SDL_DISABLE : SDL_ENABLE);
  updateTitle();
  // An empty block ends the wait for the main queue. Only the window's thread calls SDL: when the
  // display disappears, the thread that calls SDL runs the process's exit handlers.
  picture_->onChange([] { tarnwick::DispatchQueue::main().async([] {}); });
}

Window::~Window() { picture_->onChange(nullptr); }

bool Window::handleEvents() {
  for (SDL_Event event; SDL_PollEvent(&event) != 0;) {
    if (!handle(event)) return false;
  }
  return true;
}

void Window::show() {
  const auto takeOver = [this](const auto& bitmap, const auto& changed) {
    upload(bitmap, changed);
  };
  if (picture_->takeChanges(takeOver)) mustPresent_ = true;
  updateTitle();
  if (!std::exchange(mustPresent_, false)) return;
  SDL_RenderClear(renderer_.get());
  if (texture_) SDL_RenderCopy(renderer_.get(), texture_.get(), nullptr, nullptr);
  SDL_RenderPresent(renderer_.get());
}

/// Returns whether the window stays open.
bool Window::handle(const SDL_Event& event) {
  if (event.type == SDL_QUIT) return false;  // the window was closed, or Ctrl-C, or SIGTERM
  if (event.type == SDL_WINDOWEVENT) mustPresent_ = true;
  if (event.type != SDL_KEYDOWN || event.key.repeat != 0) return true;
  switch (event.key.keysym.sym) {
    case SDLK_ESCAPE:
    case SDLK_q:
      return false;
    case SDLK_F11:
    case SDLK_f:
      setFullScreen((SDL_GetWindowFlags(window_.get()) & SDL_WINDOW_FULLSCREEN) == 0);
      return true;
    default:
      return true;
  }
}

void Window::setFullScreen(bool isFullScreen) {
  SDL_SetWindowFullscreen(window_.get(), isFullScreen ? SDL_WINDOW_FULLSCREEN_DESKTOP : 0);
  SDL_ShowCursor(isFullScreen ? SDL_DISABLE : SDL_ENABLE);
}

void Window::upload(const tarnwick::Bitmap& bitmap, const std::vector<Area>& changed) {
  const int width = static_cast<int>(bitmap.width), height = static_cast<int>(bitmap.height);
  if (width != width_ || height != height_) makeTexture(width, height);
  if (!texture_) return;
  for (const Area& area : changed) {
    const SDL_Rect rect{area.x, area.y, area.width, area.height};
    const std::uint8_t* pixels = bitmap.row(area.y) + area.x * tarnwick::Bitmap::bytesPerPixel;
    SDL_UpdateTexture(texture_.get(), &rect, pixels, static_cast<int>(bitmap.rowBytes()));
  }
}

/// A picture that is too large for the display is not shown; the title says so.
void Window::makeTexture(int width, int height) {
  takeSize(width, height);
  width_ = width;
  height_ = height;
  texture_.reset();  // frees its memory for the next one
  texture_.reset(SDL_CreateTexture(renderer_.get(), SDL_PIXELFORMAT_BGRA32,
                                   SDL_TEXTUREACCESS_STREAMING, width, height));
  if (!texture_) return;
  SDL_SetTextureBlendMode(texture_.get(), SDL_BLENDMODE_NONE);
  SDL_RenderSetLogicalSize(renderer_.get(), width, height);
}

/// Makes the window as large as the picture or, on a smaller display, as large as possible with the
/// picture's proportions. A window that the user resized is not changed.
void Window::takeSize(int width, int height) {
  int currentWidth = 0, currentHeight = 0;
  SDL_GetWindowSize(window_.get(), &currentWidth, &currentHeight);
  if (currentWidth != givenWidth_ || currentHeight != givenHeight_) return;
  SDL_Rect room{};
  int top = 0, left = 0, bottom = 0, right = 0;  // the window's frame
  const int display = SDL_GetWindowDisplayIndex(window_.get());
  if (display < 0 || SDL_GetDisplayUsableBounds(display, &room) != 0) return;
  SDL_GetWindowBordersSize(window_.get(), &top, &left, &bottom, &right);
  room = {room.x + left, room.y + top, room.w - left - right, room.h - top - bottom};
  const double scale = std::min({1.0, double(room.w) / width, double(room.h) / height});
  givenWidth_ = std::max(leastWidth, static_cast<int>(std::lround(width * scale)));
  givenHeight_ = std::max(leastHeight, static_cast<int>(std::lround(height * scale)));
  SDL_SetWindowSize(window_.get(), givenWidth_, givenHeight_);
  SDL_SetWindowPosition(window_.get(), room.x + (room.w - givenWidth_) / 2,
                        room.y + (room.h - givenHeight_) / 2);
}

void Window::updateTitle() {
  using std::chrono_literals::operator""s;
  using Seconds = std::chrono::duration<double>;
  const Clock::time_point now = Clock::now();
  const Seconds passed = now - titleTime_;
  if (passed < 1s) return;
  const Picture::Status status = picture_->status();
  const double rate = double(status.count - titleCount_) / passed.count();
  titleTime_ = now;
  titleCount_ = status.count;
  if (status.count == 0) {
    setTitle("waiting for pictures on port " + std::to_string(port_));
  } else if (width_ != 0 && !texture_) {
    setTitle(sizeText(width_, height_) +
             " is too large for this display; start screenview with "
             "SDL_RENDER_DRIVER=software");
  } else {
    const double age = Seconds(now - status.last).count();
    setTitle(sizeText(status.width, status.height) + ", " + rounded(rate, 0) +
             " pictures/s, last " + rounded(age, age < 10 ? 1 : 0) + " s ago");
  }
}

void Window::setTitle(const std::string& title) {
  if (std::exchange(title_, "screenview: " + title) == title_) return;
  SDL_SetWindowTitle(window_.get(), title_.c_str());
}

}  // namespace screenview
