#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <cstdint>
#include <istream>
#include <optional>

namespace media {

/// Reads the pictures of a motion-JPEG file, which is a sequence of JPEG pictures. Reads each from
/// marker to marker (ITU-T T.81, annex B), so an embedded thumbnail does not end a picture. Holds
/// one picture in memory at a time.
class MotionJPEG {
 public:
  /// Reads from `file`, which must outlive this object. If the file does not begin with a JPEG
  /// picture, it has no frames.
  explicit MotionJPEG(std::istream& file);

  /// Returns the next complete picture, or nothing at the end. Skips incomplete pictures and bytes
  /// between pictures.
  [[nodiscard]] std::optional<tarnwick::Data> nextFrame();

  /// The number of incomplete pictures skipped so far.
  [[nodiscard]] std::int64_t skipped() const { return skipped_; }

 private:
  int takeByte();
  int takeMarker();
  bool takeSegment();
  int takePicture();
  int findStart();

  std::istream& file_;
  tarnwick::Data frame_;  // the part of the picture that has been read
  int marker_ = 0;        // the last marker read
  std::int64_t skipped_ = 0;
};

}  // namespace media
