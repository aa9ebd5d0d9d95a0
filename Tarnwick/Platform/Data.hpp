#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace [[gnu::visibility("default")]] tarnwick {

/// An owned sequence of bytes: a datagram, a chunk, a payload or a reply. Handed over by value and
/// moved, so that whoever holds one is its only owner.
using Data = std::vector<std::uint8_t>;

/// The bytes of a text, without a terminating zero.
[[nodiscard]] inline Data bytes(std::string_view text) { return {text.begin(), text.end()}; }

/// The bytes of `data` seen as characters, valid or not; valid as long as `data` is unchanged.
[[nodiscard]] inline std::string_view characters(const Data& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace tarnwick
