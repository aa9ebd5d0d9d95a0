#pragma once

#include <random>

#include "Stream.hpp"

namespace tarnwick::test {

/// The probability of each fault per datagram, from 0 to 1.
struct Faults {
  double lost = 0, repeated = 0, swapped = 0, delayed = 0, cut = 0, corrupted = 0;

  bool operator==(const Faults&) const = default;
};

/// Forwards datagrams from port() to a receiver, with the same faults for the same seed, and
/// replies back without faults. Drops datagrams that stop a receiver by design. Predicts the
/// objects that the receiver delivers.
template <typename Receiver>
class FaultyWire {
 public:
  FaultyWire(std::uint16_t target, Faults faults, std::uint32_t seed)
      : faults_(faults), far_(target), random_(seed) {}
  ~FaultyWire() { finish(); }

  [[nodiscard]] std::uint16_t port() const { return near_.port(); }

  [[nodiscard]] std::int64_t heard() const { return heard_; }

  void heal() { isHealed_ = true; }

  /// Forwards the delayed datagrams and stops. Returns the objects that the receiver must deliver.
  std::vector<Object> finish() {
    isRunning_ = false;
    if (thread_.joinable()) thread_.join();
    return expected_;
  }

 private:
  struct Held {
    int overtakers;  // datagrams that are still to overtake it
    Data datagram;
  };

  void run() {
    while (isRunning_) {
      if (auto datagram = near_.hear(std::chrono::milliseconds(1))) carry(std::move(*datagram));
      if (const auto reply = far_.hear(std::chrono::milliseconds(0))) near_.sendBytes(*reply);
    }
    for (const Held& held : held_) pass(held.datagram);
  }

  void carry(Data datagram) {
    const Faults faults = isHealed_ ? Faults() : faults_;
    if (!happens(faults.lost)) {
      if (happens(faults.cut)) datagram.resize(1 + below(datagram.size()));
      if (happens(faults.corrupted)) {
        const auto change = static_cast<std::uint8_t>(1 + below(255));
        datagram[below(datagram.size())] ^= change;
      }
      if (happens(faults.repeated)) pass(datagram);
      const std::size_t delay = happens(faults.delayed) ? 2 + below(20) : 0;
      const int overtakers = happens(faults.swapped) ? 1 : static_cast<int>(delay);
      overtakers == 0 ? pass(datagram) : held_.push_back({overtakers + 1, datagram});
    }
    for (Held& held : held_) {
      if (--held.overtakers == 0) pass(held.datagram);
    }
    std::erase_if(held_, [](const Held& held) { return held.overtakers == 0; });
    ++heard_;
  }

  void pass(const Data& datagram) {
    if (stops<Receiver>(datagram)) return;
    if (auto object = model_.hear(datagram)) expected_.push_back(std::move(*object));
    far_.sendBytes(datagram);
  }

  bool happens(double share) { return static_cast<double>(random_()) < share * 0x1p32; }
  std::size_t below(std::size_t limit) { return random_() % limit; }

  const Faults faults_;
  std::atomic<bool> isHealed_ = false, isRunning_ = true;
  std::atomic<std::int64_t> heard_ = 0;

  // Only the wire's thread uses these until it has ended.
  Peer near_, far_;
  std::mt19937 random_;
  Model<Receiver> model_;
  std::vector<Held> held_;
  std::vector<Object> expected_;

  std::thread thread_{[this] { run(); }};  // last: it uses the members above
};

}  // namespace tarnwick::test
