#include "Demo/DemoSender.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <utility>

namespace demo {
namespace {

using namespace std::chrono_literals;
using Batch = std::vector<Shipment>;

// Generous: the machine may be busy.
constexpr std::chrono::milliseconds reportTime = 20s, datagramTime = 10ms;

bool fits(const Shipment& shipment, std::int64_t chunk) {
  return std::ssize(shipment.file) <= chunk;
}

Shipment shipmentOf(const Picture& picture, float compression) {
  return {picture, compression, picture.image->jpegRepresentation(compression).value(), {}, {}};
}

/// Returns the top left corner of a picture, 16 x 16 pixels or fewer, so that it fits one datagram.
Shipment cornerOf(const Shipment& shipment, std::int64_t chunk) {
  const auto& [width, height] = shipment.picture.image->size();
  for (double side = 16;; side /= 2) {
    const tarnwick::CGRect corner{{0, 0}, {std::min(side, width), std::min(side, height)}};
    const Picture picture = regionOf(shipment.picture, shipment.picture.name + " corner", corner);
    Shipment result = shipmentOf(picture, shipment.compression);
    if (fits(result, chunk) || side == 1) return result;
  }
}

/// Returns what is sent together. The rest of a picture larger than a datagram is sent only while
/// another message is queued. Therefore a corner of the picture follows it.
Batch batchOf(const Shipment& shipment, std::int64_t chunk) {
  if (fits(shipment, chunk)) return {shipment};
  return {shipment, cornerOf(shipment, chunk)};
}

bool isReportOf(const Report& report, const Shipment& shipment) {
  return report.rect == sentRect(shipment.picture);
}

/// Waits until the batch is reported or the deadline has passed. So the send queue, which is
/// emptied when it exceeds 100 messages, holds only one batch. Pictures arrive in order: if a later
/// picture is reported first, the earlier one is lost.
void awaitReports(Batch& batch, std::int64_t chunk, ReceiverProcess& receiver) {
  Clock::time_point deadline = Clock::now();
  for (const Shipment& shipment : batch) {
    deadline += reportTime + datagramCount(shipment, chunk) * datagramTime;
  }
  for (auto due = batch.begin(); due != batch.end();) {
    std::optional<Report> report = receiver.nextReport(deadline);
    if (!report) return;
    auto reported = std::find_if(due, batch.end(), [&report](const Shipment& shipment) {
      return isReportOf(*report, shipment);
    });
    if (reported == batch.end()) reported = due;  // it has a wrong rectangle
    reported->report = std::move(report);
    due = reported + 1;
  }
}

/// The peak signal-to-noise ratio over blue, green and red.
double psnr(const tarnwick::Bitmap& sent, const tarnwick::Bitmap& received) {
  constexpr double peak = 255;
  std::int64_t squares = 0, count = 0;
  for (std::size_t i = 0; i < sent.pixels.size(); ++i) {
    if (i % tarnwick::Bitmap::bytesPerPixel == tarnwick::Bitmap::bytesPerPixel - 1) continue;
    const std::int64_t difference = sent.pixels[i] - received.pixels[i];
    squares += difference * difference;
    ++count;
  }
  if (squares == 0) return std::numeric_limits<double>::infinity();
  return 10 * std::log10(peak * peak * static_cast<double>(count) / static_cast<double>(squares));
}

std::string sidesOf(std::int64_t width, std::int64_t height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

/// Describes a loss. Names the first chunk of the file that reads as text, which causes a loss.
std::string lossOf(const Shipment& shipment, std::int64_t chunk) {
  const tarnwick::Data& file = shipment.file;
  const std::int64_t count = datagramCount(shipment, chunk) - 1;
  for (std::int64_t i = 0; i < count; ++i) {
    const auto begin = file.begin() + i * chunk, end = i + 1 < count ? begin + chunk : file.end();
    const auto message = tarnwick::RxImageUDP::classify({begin, end});
    if (message.payload && message.response == tarnwick::RxResponse::Default) continue;
    return "MISSING: piece " + std::to_string(i + 1) + " of " + std::to_string(count) +
           " reads as text, so the receiver did not take it for a part of the picture";
  }
  return "MISSING: the receiver did not report it";
}

}  // namespace

std::vector<Shipment> sendAll(const std::vector<Picture>& pictures, float compression,
                              std::int64_t chunk, ReceiverProcess& receiver) {
  auto sender = tarnwick::TxImageUDP::create("sender", "127.0.0.1", receiver.port(), chunk);
  sender->beginOperation();
  std::vector<Shipment> sent;
  std::uint64_t frame = 0;
  for (const Picture& picture : pictures) {
    Batch batch = batchOf(shipmentOf(picture, compression), chunk);
    for (Shipment& shipment : batch) {
      shipment.sentAt = Clock::now();
      sender->send(shipment.picture.image, shipment.picture.rect, ++frame,
                   shipment.picture.isFullScreen, shipment.compression);
    }
    awaitReports(batch, chunk, receiver);
    std::move(batch.begin(), batch.end(), std::back_inserter(sent));
  }
  sender->endOperation();  // drops unsent messages, but all have been sent by now
  return sent;
}

Outcome outcomeOf(const Shipment& shipment, std::int64_t chunk,
                  const std::filesystem::path& directory) {
  if (!shipment.report) return {lossOf(shipment, chunk), {}};
  const Report& report = *shipment.report;
  if (!isReportOf(report, shipment)) return {"WRONG PLACE: came as " + textOf(report.rect), {}};
  const auto received = loadPicture(directory / report.file);
  if (!received) return {"UNREADABLE: " + report.file, {}};
  const tarnwick::Bitmap& pixels = *received->bitmap();
  const tarnwick::Bitmap& original = *shipment.picture.image->bitmap();
  if (pixels.width != original.width || pixels.height != original.height) {
    return {"WRONG SIZE: came as " + sidesOf(pixels.width, pixels.height), {}};
  }
  const auto expected = tarnwick::NSImage::fromData(shipment.file);
  const bool isExact = expected && expected->bitmap()->pixels == pixels.pixels;
  return {isExact ? "" : "DAMAGED: not the pixels of the JPEG sent", psnr(original, pixels)};
}

std::int64_t datagramCount(const Shipment& shipment, std::int64_t chunk) {
  return 1 + (std::ssize(shipment.file) + chunk - 1) / chunk;
}

std::string textOf(const std::optional<tarnwick::CGRect>& rect) {
  if (!rect) return "full screen";
  const auto& [origin, size] = *rect;
  return std::to_string(std::llround(origin.x)) + "," + std::to_string(std::llround(origin.y)) +
         "  " + sidesOf(std::llround(size.width), std::llround(size.height));
}

std::optional<tarnwick::CGRect> sentRect(const Picture& picture) {
  if (picture.isFullScreen) return std::nullopt;
  return picture.rect;
}

}  // namespace demo
