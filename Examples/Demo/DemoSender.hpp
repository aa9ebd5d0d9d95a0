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

/// A picture on its way: as it is sent, and as the receiver reported it.
struct Shipment {
  Picture picture;
  float compression = 0;
  tarnwick::Data file;  // the picture as the JPEG file that travels
  Clock::time_point sentAt;
  std::optional<Report> report;
};

/// What became of a shipment.
struct Outcome {
  std::string fault;           // empty: the picture arrived as it should
  std::optional<double> psnr;  // in dB, of sent and received picture; infinite when they are equal
};

/// Sends the pictures to the receiver, one after another as it reports them. Each that does not fit
/// one datagram is followed by a corner of it, which is returned as a shipment of its own.
[[nodiscard]] std::vector<Shipment> sendAll(const std::vector<Picture>& pictures, float compression,
                                            std::int64_t chunk, ReceiverProcess& receiver);

/// Compares what was sent, in datagrams of `chunk` bytes, with what the receiver saved in
/// `directory`.
[[nodiscard]] Outcome outcomeOf(const Shipment& shipment, std::int64_t chunk,
                                const std::filesystem::path& directory);

/// How many datagrams a shipment is: one that announces it, and its pieces.
[[nodiscard]] std::int64_t datagramCount(const Shipment& shipment, std::int64_t chunk);

/// "full screen", or the rectangle as x,y w x h.
[[nodiscard]] std::string textOf(const std::optional<tarnwick::CGRect>& rect);
[[nodiscard]] std::optional<tarnwick::CGRect> sentRect(const Picture& picture);

}  // namespace demo
