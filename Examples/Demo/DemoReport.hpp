#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>

namespace demo {

using Clock = std::chrono::steady_clock;  // the same in all processes of a machine

/// The receiving process's report of a picture that its delegate received.
struct Report {
  std::int64_t number = 0;                    // 1 for the first picture
  Clock::time_point receivedAt;               // when the delegate was called
  std::optional<tarnwick::CGRect> rect = {};  // absent: the full screen
  std::int64_t width = 0, height = 0;         // in pixels
  std::string file;                           // its name, in the receiver's directory
};

/// The messages of the receiving process, each a line of its standard output. The framework's log
/// lines appear between them and never begin with the prefix.
namespace message {

inline const std::string prefix = "demo: ";
inline const std::string ready = "ready", portTaken = "port taken", picture = "picture";

}  // namespace message

inline std::string textOf(const Report& report) {
  const auto receivedAt = report.receivedAt.time_since_epoch();
  const auto& [origin, size] = report.rect.value_or(tarnwick::CGRect{});
  std::ostringstream text;
  text << message::picture << ' ' << report.number << ' '
       << std::chrono::nanoseconds(receivedAt).count() << ' ' << report.rect.has_value();
  for (const double side : {origin.x, origin.y, size.width, size.height}) {
    text << ' ' << std::llround(side);
  }
  text << ' ' << report.width << ' ' << report.height << ' ' << report.file;
  return text.str();
}

/// Parses a text that textOf() made of a report. Returns nothing for any other text.
inline std::optional<Report> reportOf(const std::string& text) {
  std::istringstream words(text);
  std::string word;
  Report report;
  std::int64_t nanoseconds = 0;
  bool hasRect = false;
  tarnwick::CGRect rect;
  words >> word >> report.number >> nanoseconds >> hasRect >> rect.origin.x >> rect.origin.y >>
      rect.size.width >> rect.size.height >> report.width >> report.height >> report.file;
  if (!words || word != message::picture) return std::nullopt;
  report.receivedAt = Clock::time_point(std::chrono::nanoseconds(nanoseconds));
  if (hasRect) report.rect = rect;
  return report;
}

}  // namespace demo
