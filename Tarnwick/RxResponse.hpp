#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// What a received datagram is. A receiver's classifier says it, its handleMessage() acts on it.
enum class RxResponse : std::uint8_t {
  Bounds,      ///< never produced
  Default,     ///< a chunk of payload, or a text that means nothing
  OK,          ///< never produced
  Pin,         ///< image: a pairing PIN is offered
  Start,       ///< video: "start"; image: "starting"
  Stop,        ///< video: "stop"; image: "end"
  Size,        ///< image: an image is announced
  Wave,        ///< audio: "wave"
  Audio,       ///< audio: a recording is announced
  VideoFrame,  ///< video: a frame is announced
  Unknown,     ///< never produced; its raw value answers a `Pin` that is given no PIN
};

/// The case with this raw value; absent when there is none.
[[nodiscard]] std::optional<RxResponse> rxResponseFromRawValue(std::uint8_t rawValue);

/// One datagram, classified.
struct RxMessage {
  std::optional<Data> payload;                     ///< its bytes; absent when they were dropped
  std::optional<std::vector<std::string>> params;  ///< the fields that matter; absent if none does
  RxResponse response = RxResponse::Default;       ///< what the datagram is

  /// Equal in all three.
  bool operator==(const RxMessage&) const = default;
};

/// What stands between the fields of a message, each character on its own.
inline constexpr std::string_view fieldSeparators = "|~";

/// The command word of a text datagram: its first field. A text without any field, an empty one
/// included, is a fatal error, as a peer that sends one is not speaking this protocol. The word is
/// part of `text`, and valid as long as that. Any thread may call it.
[[nodiscard]] std::string_view commandWord(std::string_view text);

/// The fields of a message, as texts of their own, without the empty ones. Any thread may call it.
[[nodiscard]] std::vector<std::string> messageFields(std::string_view text);

/// The first fields of a message: at most one more than any command has, which is enough to know
/// that a command has too many. Any thread may call it.
[[nodiscard]] std::vector<std::string> commandFields(std::string_view text);

}  // namespace tarnwick
