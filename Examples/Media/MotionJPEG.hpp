#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <istream>
#include <optional>

namespace media {

/// Takes a motion-JPEG file apart, which is JPEG pictures one after another. A picture is followed
/// from marker to marker (ITU-T T.81, annex B), so that one within another, as a thumbnail is, ends
/// nothing. Only one picture at a time is in memory.
class MotionJPEG {
 public:
  /// Reads from `file`, which outlives this. A file that does not begin as a JPEG picture does has
  /// no frames.
  explicit MotionJPEG(std::istream& file);

  /// The next complete picture; absent at the end. What lies between two pictures is skipped, and
  /// so is a picture that is cut short.
  [[nodiscard]] std::optional<tarnwick::Data> nextFrame();

  /// How many pictures were skipped so far.
  [[nodiscard]] std::int64_t skipped() const { return skipped_; }

 private:
  int takeByte();
  int takeMarker();
  bool takeSegment();
  int takePicture();
  int findStart();

  std::istream& file_;
  tarnwick::Data frame_;  // as much of the picture as has been read
  int marker_ = 0;        // the last marker read
  std::int64_t skipped_ = 0;
};

}  // namespace media
