#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "wire/WireBytes.h"
#include "wire/WireConstants.h"

// Audio and video packets: a 12-byte common header (type, timestamp, body
// size) and a body in the manner of an FLV tag body. A status or capability
// block may ride behind a video packet whose first body byte is 0x17; it is
// not counted in the size word.
namespace oxelo::wire {

// Header, body and tail in one buffer: what one TCP write carries. The
// timestamp goes out as its low 32 bits; the size word counts the body only.
Bytes buildPacket(uint32_t type, uint64_t timestamp, ByteView body, ByteView tail = {});

// True for the packets that take a tail block: type 9 with first body byte
// 0x17, that is a key frame or a video sequence header.
bool takesTailBlock(uint32_t type, ByteView body);

// The body of a video sequence header. With an empty `vps` it is the H.264
// form (sps, then pps in a run of its own); with one, the HEVC form (vps,
// then sps and pps in one run, a start code between them). The three
// profile bytes are bytes 1 to 3 of `sps` in both forms (0 where `sps` is
// shorter). Nothing when `sps` or `pps` is empty or a length does not fit
// its 16-bit field.
std::optional<Bytes> buildVideoSequenceHeaderBody(ByteView sps, ByteView pps, ByteView vps = {});

// The same from a frame's parameter sets.
std::optional<Bytes> buildVideoSequenceHeaderBody(const LFVideoFrame& frame);

// The body of a video frame packet: tag 0x17 or 0x27, kind 1, composition
// time 0, the data length big-endian, the data as the encoder gave it.
Bytes buildVideoFrameBody(bool isKeyFrame, ByteView data);

// Audio bodies: 0xAF, then 0 and the audio specific configuration, or 1 and
// one raw AAC frame.
Bytes buildAudioSequenceHeaderBody(ByteView audioInfo);
Bytes buildAudioFrameBody(ByteView data);

// ---- Reading, for the host side ----

struct PacketHeader {
  uint32_t type = 0;
  uint32_t timestamp = 0;
  uint32_t size = 0;  // body bytes behind the header
};

// The common header. Truncated under 12 bytes; WrongType unless 8 or 9.
Parsed<PacketHeader> parsePacketHeader(ByteView bytes);

enum class VideoBodyKind { SequenceHeader, KeyFrame, InterFrame };

// Tells the three video bodies apart by their first two bytes.
Parsed<VideoBodyKind> videoBodyKind(ByteView body);

struct VideoSequenceHeader {
  std::array<uint8_t, 3> profile{};
  Bytes sps;
  Bytes pps;
  Bytes vps;  // empty for H.264
};

// A whole sequence header body (exactly the body, nothing behind it). The
// codec says which form to expect; for HEVC the run is split at its first
// start code. Malformed when a fixed byte is wrong, the profile bytes are
// not those of the sps, or the HEVC run has no start code; BadLength when
// the lengths do not add up to the body.
Parsed<VideoSequenceHeader> parseVideoSequenceHeader(ByteView body, VideoCodec codec);

struct VideoFrameBody {
  bool isKeyFrame = false;
  Bytes data;
};

// A whole video frame body. BadLength when the data length word disagrees
// with the body.
Parsed<VideoFrameBody> parseVideoFrameBody(ByteView body);

struct AudioBody {
  bool isSequenceHeader = false;
  Bytes payload;  // the configuration, or one AAC frame
};

Parsed<AudioBody> parseAudioBody(ByteView body);

// Splits coded sample data into its units (each behind a 4-byte big-endian
// length). BadLength when a length runs past the end or a unit is empty.
Parsed<std::vector<Bytes>> splitLengthPrefixedUnits(ByteView data);

}  // namespace oxelo::wire
