#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tarnwick/Platform/Data.hpp"

namespace tarnwick {

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
  Unknown,     ///< never produced; its raw value answers a PIN message without a PIN
};

/// The case with this raw value; absent when there is none.
[[nodiscard]] std::optional<RxResponse> rxResponseFromRawValue(std::uint8_t rawValue);

/// One datagram, classified: its bytes and the fields that matter, each as far as the response
/// needs it, and the response.
struct RxMessage {
  std::optional<Data> payload;
  std::optional<std::vector<std::string>> params;
  RxResponse response = RxResponse::Default;

  bool operator==(const RxMessage&) const = default;
};

/// What stands between the fields of a message, each character on its own.
inline constexpr std::string_view fieldSeparators = "|~";

/// The command word of a text datagram: its first field. A text without any field, an empty one
/// included, is a fatal error, as a peer that sends one is not speaking this protocol.
[[nodiscard]] std::string_view commandWord(std::string_view text);

/// The fields of a message, as texts of their own.
[[nodiscard]] std::vector<std::string> messageFields(std::string_view text);

}  // namespace tarnwick
