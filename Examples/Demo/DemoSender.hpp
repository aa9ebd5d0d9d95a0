#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Demo/DemoPictures.hpp"
#include "Demo/DemoReceiver.hpp"

namespace demo {

/// A picture as it is sent, and the receiver's report of it.
struct Shipment {
  Picture picture;
  float compression = 0;
  tarnwick::Data file;  // the JPEG file that is sent
  Clock::time_point sentAt;
  std::optional<Report> report;
};

/// The result of a shipment.
struct Outcome {
  std::string fault;           // empty if the picture arrived intact
  std::optional<double> psnr;  // in dB, of sent and received picture; infinite if they are equal
};

/// Sends the pictures one after another, each after the report of the previous one. A corner
/// follows each picture that does not fit one datagram, and is returned as a separate shipment.
[[nodiscard]] std::vector<Shipment> sendAll(const std::vector<Picture>& pictures, float compression,
                                            std::int64_t chunk, ReceiverProcess& receiver);

/// Compares what was sent, in datagrams of `chunk` bytes, with what the receiver saved in
/// `directory`.
[[nodiscard]] Outcome outcomeOf(const Shipment& shipment, std::int64_t chunk,
                                const std::filesystem::path& directory);

/// Returns the number of datagrams of a shipment: its announcement and the chunks of its file.
[[nodiscard]] std::int64_t datagramCount(const Shipment& shipment, std::int64_t chunk);

/// Returns "full screen", or the rectangle as "x,y  width x height".
[[nodiscard]] std::string textOf(const std::optional<tarnwick::CGRect>& rect);
[[nodiscard]] std::optional<tarnwick::CGRect> sentRect(const Picture& picture);

}  // namespace demo
