#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace screenview {

using Clock = std::chrono::steady_clock;

/// A rectangle of the picture, in its pixels from the top left.
struct Area {
  int x = 0, y = 0, width = 0, height = 0;
};

/// The peer's screen, put together from the images that arrive: a thread of the receiver's draws
/// into it, any other thread looks at it. It is limited in size, whatever a peer sends: what lies
/// beyond 16384 pixels a side, or 2^26 in all, a wall of eight 4K screens, is left out.
class Picture final : public tarnwick::RxImageUDPDelegate {
 public:
  /// `width` and `height` are 0, and the times without meaning, before the first image.
  struct Status {
    int width = 0, height = 0;
    std::uint64_t count = 0;  // of images so far
    Clock::time_point first, last;
  };

  using Upload = std::function<void(const tarnwick::Bitmap&, const std::vector<Area>& changed)>;

  /// Draws an image at its place, or replaces all by it; see isPreview() in the source.
  void imageReceived(std::shared_ptr<tarnwick::NSImage> image,
                     std::optional<tarnwick::CGRect> bounds) override;

  [[nodiscard]] Status status() const;

  /// The picture as it stands; null before the first image.
  [[nodiscard]] std::shared_ptr<tarnwick::NSImage> copy() const;

  /// Calls `upload` with what was drawn since the last time, if anything was. Nothing is drawn
  /// meanwhile, so let it be short. Returns whether it was called.
  bool takeChanges(const Upload& upload);

  /// From now on `wake` is called, by the thread that draws, when there are changes to take where
  /// there were none; null for no more calls. It may call nothing here.
  void onChange(std::function<void()> wake);

 private:
  [[nodiscard]] std::shared_ptr<tarnwick::NSImage> canvas() const;
  void noteChange(const Area& area);

  mutable std::mutex lock_;

  // Guarded by the lock. The canvas is replaced and drawn into by one thread only, the receiver's,
  // which may therefore read it without.
  std::shared_ptr<tarnwick::NSImage> canvas_;  // null before the first image
  std::vector<Area> changes_;
  Status status_;
  std::function<void()> wake_;
};

}  // namespace screenview
