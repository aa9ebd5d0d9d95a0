#pragma once

#include <random>

#include "Stream.hpp"

namespace tarnwick::test {

/// How often each fault befalls a datagram, from 0 to 1.
struct Faults {
  double lost = 0, repeated = 0, swapped = 0, delayed = 0, cut = 0, corrupted = 0;

  bool operator==(const Faults&) const = default;
};

/// A wire on which datagrams go wrong, the same ones for the same seed: what is said to port()
/// reaches the receiver or not, and replies come back. It knows what the receiver is to make of
/// what went through, and lets nothing through that stops a receiver by design.
template <typename Receiver>
class FaultyWire {
 public:
  FaultyWire(std::uint16_t target, Faults faults, std::uint32_t seed)
      : faults_(faults), far_(target), random_(seed) {}
  ~FaultyWire() { finish(); }

  [[nodiscard]] std::uint16_t port() const { return near_.port(); }

  /// How many datagrams were said to it.
  [[nodiscard]] std::int64_t heard() const { return heard_; }

  /// Nothing goes wrong from here on.
  void heal() { isHealed_ = true; }

  /// Carries what it still holds, and no more; the objects that it carried whole enough to arrive.
  std::vector<Object> finish() {
    isRunning_ = false;
    if (thread_.joinable()) thread_.join();
    return expected_;
  }

 private:
  struct Held {
    int overtakers;  // how many datagrams are to pass it first
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

  // Used by the wire's thread, until that has ended.
  Peer near_, far_;
  std::mt19937 random_;
  Model<Receiver> model_;
  std::vector<Held> held_;
  std::vector<Object> expected_;

  std::thread thread_{[this] { run(); }};  // last, as it uses the rest
};

}  // namespace tarnwick::test
