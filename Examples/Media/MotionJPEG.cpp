#include "Media/MotionJPEG.hpp"

#include <cstddef>
#include <string>
#include <utility>

namespace media {
namespace {

// A marker has two bytes. The first is always 0xFF (ITU-T T.81, table B.1).
constexpr int markerPrefix = 0xFF, startOfImage = 0xD8, endOfImage = 0xD9;
constexpr int firstRestart = 0xD0, lastRestart = 0xD7, temporary = 0x01, stuffedZero = 0x00;

constexpr int endOfFile = std::istream::traits_type::eof();

/// In bytes. No camera writes a longer picture, so a longer one has lost its end.
constexpr std::size_t longestFrame = std::size_t{1} << 26;

/// Whether no segment follows the marker, so that entropy-coded data continues.
bool standsAlone(int marker) {
  return marker == stuffedZero || marker == temporary ||
         (firstRestart <= marker && marker <= lastRestart);
}

}  // namespace

MotionJPEG::MotionJPEG(std::istream& file) : file_(file) {
  const int first = file_.get(), second = file_.get();
  if (first == markerPrefix && second == startOfImage) {
    marker_ = startOfImage;
  } else {
    file_.setstate(std::ios::eofbit);
  }
}

std::optional<tarnwick::Data> MotionJPEG::nextFrame() {
  if (marker_ != startOfImage) marker_ = findStart();
  while (marker_ == startOfImage) {
    frame_ = {markerPrefix, startOfImage};
    marker_ = takePicture();
    if (marker_ == endOfImage) return std::move(frame_);
    ++skipped_;
    if (marker_ != startOfImage) marker_ = findStart();
  }
  return std::nullopt;
}

int MotionJPEG::takeByte() {
  if (frame_.size() >= longestFrame) return endOfFile;
  const int byte = file_.get();
  if (byte != endOfFile) frame_.push_back(static_cast<std::uint8_t>(byte));
  return byte;
}

/// Reads up to a marker for which standsAlone() is false. Returns that marker, or endOfFile.
int MotionJPEG::takeMarker() {
  int byte = stuffedZero;
  while (standsAlone(byte)) {
    while (byte != markerPrefix && byte != endOfFile) byte = takeByte();
    while (byte == markerPrefix) byte = takeByte();  // any number of fill bytes
  }
  return byte;
}

bool MotionJPEG::takeSegment() {
  constexpr int byteValues = 256, ownLength = 2;  // the length counts its own two bytes
  const int high = takeByte(), low = takeByte();
  if (low == endOfFile) return false;
  const int length = high * byteValues + low;
  for (int i = ownLength; i < length; ++i) {
    if (takeByte() == endOfFile) return false;
  }
  return length >= ownLength;
}

/// Reads a picture after its start. Returns the marker that ends it, which is endOfImage if the
/// picture is complete.
int MotionJPEG::takePicture() {
  for (;;) {
    const int marker = takeMarker();
    if (marker == endOfImage || marker == startOfImage || marker == endOfFile) return marker;
    if (!takeSegment()) return endOfFile;
  }
}

int MotionJPEG::findStart() {
  int previous = stuffedZero, byte = file_.get();
  while (byte != endOfFile && (previous != markerPrefix || byte != startOfImage)) {
    previous = std::exchange(byte, file_.get());
  }
  return byte;
}

}  // namespace media
