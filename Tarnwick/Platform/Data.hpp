#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace [[gnu::visibility("default")]] tarnwick {

/// An owned sequence of bytes: a datagram, a chunk, a payload or a reply. Passed by value and
/// moved, so each one has a single owner.
using Data = std::vector<std::uint8_t>;

/// The bytes of `text`, without a terminating zero.
[[nodiscard]] inline Data bytes(std::string_view text) { return {text.begin(), text.end()}; }

/// The bytes of `data` as characters, which need not be UTF-8. The view points into `data`.
[[nodiscard]] inline std::string_view characters(const Data& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace tarnwick
