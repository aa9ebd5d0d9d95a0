#pragma once

#include <SDL.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Screenview/Picture.hpp"

namespace screenview {

/// Starts SDL's video subsystem and quits SDL when it is destroyed.
class SDLVideo {
 public:
  /// Throws program::Trouble if there is no display.
  SDLVideo();
  ~SDLVideo() { SDL_Quit(); }
  SDLVideo(const SDLVideo&) = delete;
  SDLVideo& operator=(const SDLVideo&) = delete;
};

template <auto destroy>
struct Destroyer {
  void operator()(auto* object) const { destroy(object); }
};

/// A window that shows a picture, scaled to the window without changing its proportions. For the
/// main thread only. While it is open, changes of the picture put blocks on the main queue.
class Window {
 public:
  /// Opens the window, which is dark until the first image arrives. Until then its title shows
  /// `port`. Throws program::Trouble if there is no display.
  Window(std::shared_ptr<Picture> picture, std::uint16_t port, bool isFullScreen);
  ~Window();
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  /// Handles the user's input. Returns whether the window stays open.
  [[nodiscard]] bool handleEvents();

  /// Draws the current picture if it or the window has changed.
  void show();

 private:
  [[nodiscard]] bool handle(const SDL_Event& event);
  void setFullScreen(bool isFullScreen);
  void upload(const tarnwick::Bitmap& bitmap, const std::vector<Area>& changed);
  void makeTexture(int width, int height);
  void takeSize(int width, int height);
  void updateTitle();
  void setTitle(const std::string& title);

  const std::shared_ptr<Picture> picture_;
  const std::uint16_t port_;
  const SDLVideo video_;
  std::unique_ptr<SDL_Window, Destroyer<SDL_DestroyWindow>> window_;
  std::unique_ptr<SDL_Renderer, Destroyer<SDL_DestroyRenderer>> renderer_;
  std::unique_ptr<SDL_Texture, Destroyer<SDL_DestroyTexture>> texture_;  // null: nothing to show
  int width_ = 0, height_ = 0;                                           // of the texture's picture
  int givenWidth_ = 0, givenHeight_ = 0;  // the window's size unless the user resized it
  bool mustPresent_ = true;

  std::string title_;
  Clock::time_point titleTime_;   // of the last update
  std::uint64_t titleCount_ = 0;  // the images received by then
};

}  // namespace screenview
