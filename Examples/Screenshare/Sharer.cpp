#include "Screenshare/Sharer.hpp"

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "Program/Program.hpp"

namespace screenshare {
namespace {

using namespace std::chrono_literals;

constexpr double margin = 0.85;       // planned size of a region's file, in datagrams
constexpr auto refreshPatience = 1s;  // how long changes are sent before a refresh
constexpr int previewCount = 4;
constexpr auto longestWhole = 2s;  // how long a whole screen may delay changes
constexpr double bytesPerMegabit = 125'000;

std::shared_ptr<tarnwick::TxImageUDP> makeSender(const Options& options) try {
  return tarnwick::TxImageUDP::create("screen", options.address, options.port, options.chunk);
} catch (const tarnwick::UDPError& error) {
  throw program::Trouble(program::adviceOn(error, options.port));
}

std::chrono::steady_clock::duration seconds(double count) {
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(count));
}

}  // namespace

Sharer::Sharer(const Options& options)
    : options_(options),
      screen_(options.display),
      sender_(makeSender(options)),
      pace_(options.bandwidth * bytesPerMegabit) {}

void Sharer::runFrame(Clock::time_point end) {
  noteChanges();
  if (!changes_->isClean() && grab(changes_->box())) sendPieces(end);
  pace_.sleepUntil(end);
}

void Sharer::noteChanges() {
  const Clock::time_point now = Clock::now();
  const std::vector<PixelRect> changed = screen_.changes();
  if (screen_.bounds() != screenBounds_) begin(screen_.bounds());
  for (const PixelRect& area : changed) changes_->touch(scaled(area), now);
  if (now < nextRefresh_) return;
  if (previews_ > 0) sendPreview();
  if (!std::exchange(isWholeSent_, true)) sendWhole();
  changes_->touch(bounds_, now + refreshPatience);
  nextRefresh_ = now + seconds(options_.refresh);
}

/// Begins to share a screen of this size.
void Sharer::begin(const PixelRect& screen) {
  screenBounds_ = screen;
  const auto side = [this](int pixels) {
    return std::max(1, static_cast<int>(std::lround(pixels * options_.scale)));
  };
  bounds_ = {0, 0, side(screen.width), side(screen.height)};
  const auto blank = tarnwick::NSImage::create({1, 1});
  changes_.emplace(bounds_.width, bounds_.height, fileSize(*blank, options_.compression));
  nextRefresh_ = {};
  previews_ = previewCount;
  isWholeSent_ = false;
}

/// Sends a small picture of the whole screen. It tells the peer the size and the content of the
/// screen at once, also when the screen has become smaller. It is sent again with the next
/// refreshes, because a datagram may be lost.
void Sharer::sendPreview() {
  if (!grab(bounds_)) return;
  const auto whole = picture(bounds_);
  for (double divisor = 4;; divisor *= 2) {
    const tarnwick::CGSize size{std::ceil(bounds_.width / divisor),
                                std::ceil(bounds_.height / divisor)};
    const auto small = tarnwick::resize(*whole, size);
    if (fileSize(*small, options_.compression) > static_cast<std::size_t>(options_.chunk)) continue;
    pace_.waitForRoom();
    send(small, bounds_, false, options_.compression);
    --previews_;
    return;
  }
}

/// Sends the whole screen in full size and without a rectangle, in as many datagrams as it needs.
/// Does so once for each size, because a peer that loses a datagram gets the regions that follow.
/// Sends nothing if the picture would delay changes for too long.
void Sharer::sendWhole() {
  if (!grab(bounds_)) return;
  const PixelRect corner = PixelRect{0, 0, 16, 16}.intersection(bounds_);
  auto whole = picture(bounds_);
  const std::size_t size = fileSize(*whole, options_.compression);
  if (pace_.time(datagrams(size), size) > longestWhole) return;
  pace_.waitForRoom();
  send(std::move(whole), bounds_, true, options_.compression);
  // The rest of a file is sent only while another message is queued.
  send(picture(corner), corner, false, options_.compression);
}

/// Grabs `area` alone if the screen is not scaled. Otherwise grabs and scales the whole screen, so
/// that regions join without seams.
bool Sharer::grab(const PixelRect& area) {
  scaledScreen_ = nullptr;
  if (bounds_ == screenBounds_) return screen_.grab(area);
  if (!screen_.grab(screenBounds_)) return false;
  scaledScreen_ = tarnwick::resize(*screen_.picture(screenBounds_), bounds_.asCGRect().size);
  return true;
}

std::shared_ptr<tarnwick::NSImage> Sharer::picture(const PixelRect& area) const {
  return scaledScreen_ ? tarnwick::crop(*scaledScreen_, area.asCGRect()) : screen_.picture(area);
}

/// Sends regions until all are sent, the next frame is due or the user interrupts.
void Sharer::sendPieces(Clock::time_point end) {
  ++totals_.frames;
  for (const auto& piece : changes_->pieces(margin * static_cast<double>(options_.chunk))) {
    sendPiece(piece.area);
    if (Clock::now() >= end || program::isInterrupted()) return;
  }
}

/// Sends a region. If its file is too large for a datagram, sends the two halves or, for a single
/// cell, lowers the quality.
void Sharer::sendPiece(const PixelRect& area) {
  if (program::isInterrupted()) return;
  const auto image = picture(area);
  float factor = options_.compression;
  std::size_t size = fileSize(*image, factor);
  changes_->learn(area, size);
  if (size > static_cast<std::size_t>(options_.chunk)) {
    if (const auto halves = changes_->halves(area)) {
      sendPiece(halves->first);
      sendPiece(halves->second);
      return;
    }
    while (size > static_cast<std::size_t>(options_.chunk)) {
      factor *= 0.75F;
      size = fileSize(*image, factor);
    }
  }
  pace_.waitForRoom();
  send(image, area, area == bounds_, factor);
  changes_->clear(area);
}

void Sharer::send(std::shared_ptr<tarnwick::NSImage> image, const PixelRect& area,
                  bool isFullScreen, float factor) {
  // Waits until the sender has queued the last file and released its image, so that only one image
  // waits to be encoded. The caller must not hold the last image.
  while (lastSent_.use_count() > 0) std::this_thread::sleep_for(100us);
  lastSent_ = image;
  const std::size_t size = fileSize(*image, factor);
  sender_->send(std::move(image), area.asCGRect(), static_cast<std::uint64_t>(++totals_.pictures),
                isFullScreen, factor);
  totals_.datagrams += datagrams(size);
  totals_.bytes += static_cast<std::int64_t>(size);
  pace_.add(datagrams(size), size);
}

/// Returns the number of datagrams of a picture: its announcement and its file.
std::int64_t Sharer::datagrams(std::size_t fileSize) const {
  return 1 + (static_cast<std::int64_t>(fileSize) + options_.chunk - 1) / options_.chunk;
}

std::size_t Sharer::fileSize(const tarnwick::NSImage& image, float factor) {
  const Clock::time_point start = Clock::now();
  const std::size_t size = image.jpegRepresentation(factor).value().size();
  totals_.encoding += Clock::now() - start;
  return size;
}

PixelRect Sharer::scaled(const PixelRect& area) const {
  if (bounds_ == screenBounds_) return area;
  // The scaling filter spreads a change by up to three pixels of the coarser picture.
  const double across = static_cast<double>(bounds_.width) / screenBounds_.width,
               down = static_cast<double>(bounds_.height) / screenBounds_.height;
  constexpr int reach = 3;
  const int left = static_cast<int>(std::floor(area.x * across)) - reach,
            top = static_cast<int>(std::floor(area.y * down)) - reach;
  const int right = static_cast<int>(std::ceil((area.x + area.width) * across)) + reach,
            bottom = static_cast<int>(std::ceil((area.y + area.height) * down)) + reach;
  return {left, top, right - left, bottom - top};
}

}  // namespace screenshare
