#pragma once

#include "FaultyWire.hpp"
#include "Pictures.hpp"
#include "Process.hpp"

namespace tarnwick::test {

/// A picture, the JPEG file that a sender makes of it, and the pixels of that file.
struct Sample {
  std::shared_ptr<NSImage> image;
  Data file, pixels;
};

inline constexpr float compression = 0.5F;

inline const Sample& sample(std::size_t index) {
  static const std::vector<Sample> samples = [] {
    constexpr std::int64_t sides[][2]{{48, 48},   {96, 72},   {160, 120}, {240, 160},
                                      {320, 240}, {400, 300}, {800, 500}, {1280, 720}};
    std::vector<Sample> made;
    for (const auto& [width, height] : sides) {
      const auto image = NSImage::fromBitmap(picture(width, height));
      const Data file = image->jpegRepresentation(compression).value();
      made.push_back({image, file, NSImage::fromData(file)->bitmap()->pixels});
    }
    return made;
  }();
  return samples[index % samples.size()];
}

/// What the delegate must receive if every chunk of object `number` arrives.
template <typename Receiver>
Object object(std::int64_t number) {
  const Sample& content = sample(static_cast<std::size_t>(number));
  const auto left = static_cast<CGFloat>(number);
  if (!isImage<Receiver>) return {std::to_string(number), content.file};
  return {label(CGRect{{left, 0}, {1, 1}}), content.pixels};
}

/// Sends an object in chunks, slowly enough for a receiver.
template <typename Receiver>
void say(Peer& peer, std::int64_t number, std::size_t chunk) {
  const Data& file = sample(static_cast<std::size_t>(number)).file;
  peer.say(announcement<Receiver>(number, file.size()));
  for (std::size_t start = 0; start < file.size(); start += chunk) {
    const std::size_t end = std::min(file.size(), start + chunk);
    peer.sendBytes({file.data() + start, file.data() + end});
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

/// Sends objects: images with a sender, video and audio with a peer.
template <typename Receiver>
class Source {
 public:
  Source(std::uint16_t port, std::size_t chunk) : peer_(port), chunk_(chunk) {
    if (!isImage<Receiver>) return;
    sender_ = TxImageUDP::create("sender", "127.0.0.1", port, static_cast<std::int64_t>(chunk));
    sender_->beginOperation();
    ++datagrams_;
  }
  ~Source() {
    if (sender_) sender_->endOperation();
  }

  void send(std::int64_t number) {
    const Sample& content = sample(static_cast<std::size_t>(number));
    const std::size_t pieces = (content.file.size() + chunk_ - 1) / chunk_;
    datagrams_ += static_cast<std::int64_t>(1 + pieces);
    if (!sender_) {
      say<Receiver>(peer_, number, chunk_);
      return;
    }
    heldBack_ = static_cast<std::int64_t>(pieces - 1);
    const CGRect rect{{static_cast<CGFloat>(number), 0}, {1, 1}};
    sender_->send(content.image, rect, static_cast<std::uint64_t>(number), false, compression);
  }

  /// The time to send the last object, with a margin.
  [[nodiscard]] std::int64_t milliseconds() const { return sender_ ? 3 + 2 * heldBack_ : 1; }

  /// The datagrams of all objects, and those that wait until another message is queued.
  [[nodiscard]] std::int64_t datagrams() const { return datagrams_; }
  [[nodiscard]] std::int64_t heldBack() const { return heldBack_; }

 private:
  std::shared_ptr<TxImageUDP> sender_;
  Peer peer_;
  const std::size_t chunk_;
  std::int64_t datagrams_ = 0, heldBack_ = 0;
};

struct Counts {
  std::int64_t sent = 0, whole = 0, altered = 0;
  std::int64_t dropped = 0;  // datagrams that the system dropped at full buffers
  bool isRight = true;       // exactly the forwarded objects arrived, if `dropped` is 0
};

/// Sends a last object until it arrives. Returns the objects before it; absent if it never arrives.
template <typename Receiver>
std::optional<std::vector<Object>> arrivesAfter(std::int64_t last, Arrivals& arrivals,
                                                std::uint16_t port) {
  std::vector<Object> before;
  Peer peer(port);
  for (int attempt = 0; attempt < 20; ++attempt) {
    say<Receiver>(peer, last, 65500);
    while (auto next = arrivals.objects.await(std::chrono::seconds(1))) {
      if (*next == object<Receiver>(last)) return before;
      before.push_back(std::move(*next));
    }
  }
  return std::nullopt;
}

/// Sends `count` objects over a faulty wire to a receiver, and ten more over the healed wire.
template <typename Receiver>
Counts session(std::int64_t count, Faults faults) {
  constexpr std::int64_t mostOnTheWay = 40, healedCount = 10, surelyWhole = 5;
  const Receiving<Receiver> end;
  end.receiver->beginOperation();
  FaultyWire<Receiver> wire(end.port, faults, 1);
  std::vector<Object> sent;
  bool isInTime = true;
  {  // the source's destructor sends the chunks that still wait
    Source<Receiver> source(wire.port(), 1400);
    const auto waitForAllBut = [&](std::int64_t most) {
      isInTime = isInTime && eventually([&] {
                   const std::int64_t known = wire.heard() + droppedAt(wire.port());
                   return source.datagrams() - source.heldBack() - known <= most;
                 });
    };
    for (std::int64_t number = 1; isInTime && number <= count + healedCount; ++number) {
      waitForAllBut(number == count + 1 ? 0 : mostOnTheWay);
      if (number == count + 1) wire.heal();
      source.send(number);
      sent.push_back(object<Receiver>(number));
    }
    waitForAllBut(0);
  }
  const std::vector<Object> passed = wire.finish();
  const auto before = arrivesAfter<Receiver>(count + healedCount + 1, *end.application, end.port);
  std::vector<Object> arrived = before.value_or(std::vector<Object>());

  Counts counts{count + healedCount, 0, 0, droppedAt(end.port) + droppedAt(wire.port())};
  end.receiver->endOperation();
  const bool isHealed =
      arrived.size() >= surelyWhole &&
      std::equal(sent.end() - surelyWhole, sent.end(), arrived.end() - surelyWhole);
  const bool isExact = arrived == passed && isHealed && (faults != Faults() || arrived == sent);
  counts.isRight = isInTime && before && (counts.dropped > 0 || isExact);
  for (const Object& object : sent) counts.whole += std::erase(arrived, object) > 0 ? 1 : 0;
  counts.altered = std::ssize(arrived);
  return counts;
}

}  // namespace tarnwick::test
