#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Screenshare/ChangeMap.hpp"
#include "Screenshare/Pace.hpp"
#include "Screenshare/PixelRect.hpp"
#include "Screenshare/Screen.hpp"

namespace screenshare {

struct Options {
  std::string address;
  std::uint16_t port = 5000;
  std::int64_t chunk = 16000;  // bytes
  double frameRate = 30;       // per second
  double refresh = 5;          // seconds
  float compression = 0.8F;
  double scale = 1;
  double bandwidth = 200;  // megabits per second
  std::string display;
};

/// What was sent since the start.
struct Totals {
  std::int64_t frames = 0, pictures = 0, datagrams = 0, bytes = 0;
  std::chrono::steady_clock::duration encoding{0};
};

/// Shares a screen with a peer. Sends the whole screen first, and then what changes. Sends all of
/// it again from time to time, for peers that started late or lost a datagram. Except for the first
/// whole screen of each size, every file fits one datagram and therefore does not wait for another
/// message. For one thread.
class Sharer {
 public:
  explicit Sharer(const Options& options);

  /// Begin and end the stream. The first takes up to one second, the second takes two.
  void beginOperation() { sender_->beginOperation(); }
  void endOperation() { sender_->endOperation(); }

  /// Sends what is due and returns at the time `end`. What was not sent by then is sent first in
  /// the next frame.
  void runFrame(std::chrono::steady_clock::time_point end);

  [[nodiscard]] const Totals& totals() const { return totals_; }

 private:
  using Clock = std::chrono::steady_clock;

  void begin(const PixelRect& screen);
  void noteChanges();
  bool grab(const PixelRect& area);
  [[nodiscard]] std::shared_ptr<tarnwick::NSImage> picture(const PixelRect& area) const;
  void sendPreview();
  void sendWhole();
  void sendPieces(Clock::time_point end);
  void sendPiece(const PixelRect& area);
  void send(std::shared_ptr<tarnwick::NSImage> image, const PixelRect& area, bool isFullScreen,
            float factor);
  [[nodiscard]] std::size_t fileSize(const tarnwick::NSImage& image, float factor);
  [[nodiscard]] std::int64_t datagrams(std::size_t fileSize) const;
  [[nodiscard]] PixelRect scaled(const PixelRect& area) const;

  const Options options_;
  Screen screen_;
  const std::shared_ptr<tarnwick::TxImageUDP> sender_;
  Pace pace_;

  PixelRect screenBounds_, bounds_;  // of the screen, and of its shared picture
  std::optional<ChangeMap> changes_;
  std::shared_ptr<tarnwick::NSImage> scaledScreen_;  // null if the screen is not scaled
  Clock::time_point nextRefresh_;
  int previews_ = 0;          // still to be sent
  bool isWholeSent_ = false;  // or skipped, for this size
  std::weak_ptr<tarnwick::NSImage> lastSent_;
  Totals totals_;
};

}  // namespace screenshare
