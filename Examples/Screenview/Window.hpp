#pragma once

#include <SDL.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Screenview/Picture.hpp"

namespace screenview {

/// From its construction to its end SDL is in use.
class SDLVideo {
 public:
  /// Throws program::Trouble when there is no display.
  SDLVideo();
  ~SDLVideo() { SDL_Quit(); }
  SDLVideo(const SDLVideo&) = delete;
  SDLVideo& operator=(const SDLVideo&) = delete;
};

template <auto destroy>
struct Destroyer {
  void operator()(auto* object) const { destroy(object); }
};

/// A window that shows a picture, scaled to the window with its proportions kept. Used by the main
/// thread only. While it is open, each change of the picture puts a block on the main queue.
class Window {
 public:
  /// Opens the window, dark until the first image comes; its title tells of `port`. Throws
  /// program::Trouble when there is no display.
  Window(std::shared_ptr<Picture> picture, std::uint16_t port, bool isFullScreen);
  ~Window();
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  /// Acts on what the user did. Returns whether the window is to stay.
  [[nodiscard]] bool handleEvents();

  /// Shows the picture as it stands, if that differs from what is shown.
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
  int width_ = 0, height_ = 0;            // of the picture that the texture is for
  int givenWidth_ = 0, givenHeight_ = 0;  // the window's size, unless the user gave it another
  bool mustPresent_ = true;

  std::string title_;
  Clock::time_point titleTime_;   // when it was last thought about
  std::uint64_t titleCount_ = 0;  // the images that had come by then
};

}  // namespace screenview
