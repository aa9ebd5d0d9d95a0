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

/// The peer's screen, composed of the images that arrive. A thread of the receiver's operation
/// queue draws them; any thread may call the other members. The size is limited to 16,384 pixels
/// per side and 2^26 in total, about eight 4K screens. Pixels beyond these limits are dropped.
class Picture final : public tarnwick::RxImageUDPDelegate {
 public:
  /// Before the first image, `width` and `height` are 0 and the times have no meaning.
  struct Status {
    int width = 0, height = 0;
    std::uint64_t count = 0;  // of images so far
    Clock::time_point first, last;
  };

  using Upload = std::function<void(const tarnwick::Bitmap&, const std::vector<Area>& changed)>;

  /// Draws an image at its place, or replaces the whole picture by it; see isPreview() in the
  /// source. Called on a thread of the receiver's operation queue, one call at a time. Drops the
  /// image if memory runs out.
  void imageReceived(std::shared_ptr<tarnwick::NSImage> image,
                     std::optional<tarnwick::CGRect> bounds) override;

  [[nodiscard]] Status status() const;

  /// Returns a copy of the picture, or null before the first image.
  [[nodiscard]] std::shared_ptr<tarnwick::NSImage> copy() const;

  /// Calls `upload` with what was drawn since the last call, if anything was. Returns whether it
  /// did. `upload` runs on the calling thread with the lock held: imageReceived() waits for it, and
  /// it must not call a member. What it throws is passed to the caller, and the changes stay.
  bool takeChanges(const Upload& upload);

  /// Sets a function that imageReceived() calls on its thread when the first change since
  /// takeChanges() is drawn; null for no calls. It runs with the lock held: the other members wait
  /// for it, and it must not call them. It may throw std::bad_alloc only, which loses the change.
  void onChange(std::function<void()> wake);

 private:
  [[nodiscard]] std::shared_ptr<tarnwick::NSImage> canvas() const;
  void noteChange(const Area& area);

  mutable std::mutex lock_;

  // Guarded by the lock. Only the thread in imageReceived() replaces the canvas and draws into it.
  // Therefore that thread may read its pixels without the lock.
  std::shared_ptr<tarnwick::NSImage> canvas_;  // null before the first image
  std::vector<Area> changes_;
  Status status_;
  std::function<void()> wake_;
};

}  // namespace screenview
