#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace [[gnu::visibility("default")]] tarnwick {

/// The class of a datagram. A receiver's classify() determines it, its handleMessage() acts on it.
enum class RxResponse : std::uint8_t {
  Bounds,      ///< never produced
  Default,     ///< a chunk of payload, or a text to ignore
  OK,          ///< never produced
  Pin,         ///< image: a pairing PIN is offered
  Start,       ///< video: "start"; image: "starting"
  Stop,        ///< video: "stop"; image: "end"
  Size,        ///< image: an image is announced
  Wave,        ///< audio: "wave"
  Audio,       ///< audio: a recording is announced
  VideoFrame,  ///< video: a frame is announced
  Unknown,     ///< never produced; its raw value is the reply to a `Pin` without a PIN
};

/// Returns the case with this raw value; absent if there is none.
[[nodiscard]] std::optional<RxResponse> rxResponseFromRawValue(std::uint8_t rawValue);

/// A classified datagram.
struct RxMessage {
  std::optional<Data> payload;                     ///< its bytes; absent if dropped
  std::optional<std::vector<std::string>> params;  ///< the parameters; absent if it has none
  RxResponse response = RxResponse::Default;       ///< its class

  /// Compares all three.
  bool operator==(const RxMessage&) const = default;
};

/// The characters that separate the fields of a message.
inline constexpr std::string_view fieldSeparators = "|~";

/// Returns the command word of a text datagram: its first field. The word points into `text`. A
/// text without any field, the empty text included, is a fatal error: a peer that sends one does
/// not speak this protocol. Any thread may call it.
[[nodiscard]] std::string_view commandWord(std::string_view text);

/// Returns the fields of a message without the empty ones. Any thread may call it.
[[nodiscard]] std::vector<std::string> messageFields(std::string_view text);

/// Returns the first fields of a message, at most one more than the maximum of any command. This is
/// enough to detect a command with too many fields. Any thread may call it.
[[nodiscard]] std::vector<std::string> commandFields(std::string_view text);

}  // namespace tarnwick
