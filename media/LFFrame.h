#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace oxelo {

using Bytes = std::vector<uint8_t>;

// One coded sample. Shared: the encoder creates it, the session stamps it,
// the buffer holds it, the socket reads it; it lives until the last holder
// lets go. Only the session writes `timestamp`, before the frame enters the
// buffer; after that nobody changes a frame.
struct LFFrame {
  virtual ~LFFrame() = default;
  // Milliseconds. The encoder sets the capture time on the media clock; the
  // session rewrites it to the time since the first frame of the connection.
  uint64_t timestamp = 0;
  Bytes data;    // the coded payload
  Bytes header;  // no producer fills it
};

// A coded video sample: every unit of the sample, each behind a 4-byte
// big-endian length. Every frame carries the current parameter sets (without
// start codes), shared by all frames of the encoder; they are null until the
// encoder has seen its first key frame, and `vps` stays null for H.264.
struct LFVideoFrame : LFFrame {
  bool isKeyFrame = false;
  std::shared_ptr<const Bytes> sps;
  std::shared_ptr<const Bytes> pps;
  std::shared_ptr<const Bytes> vps;
};

// One raw AAC frame, with the two-byte audio specific configuration of its
// encoder on every frame.
struct LFAudioFrame : LFFrame {
  std::shared_ptr<const Bytes> audioInfo;
};

// True when a parameter set or configuration is there and not empty.
inline bool hasBytes(const std::shared_ptr<const Bytes>& bytes) {
  return bytes != nullptr && !bytes->empty();
}

}  // namespace oxelo
