#include "wire/MediaPackets.h"

#include <algorithm>

namespace oxelo::wire {
namespace {

constexpr uint8_t kConfigurationVersion = 1;
constexpr uint8_t kLengthSizeMark = 0xFF;
constexpr uint8_t kParameterSetMark = 0xE1;
constexpr uint8_t kParameterSetCount = 1;
constexpr size_t kSequenceHeaderFixed = 11;  // bytes before the first length
constexpr size_t kFrameBodyHead = 9;
constexpr uint8_t kStartCode[] = {0, 0, 0, 1};

bool fitsU16(size_t n) { return n <= 0xFFFF; }

}  // namespace

Bytes buildPacket(uint32_t type, uint64_t timestamp, ByteView body, ByteView tail) {
  Bytes out;
  out.reserve(kCommonHeaderSize + body.size() + tail.size());
  appendU32LE(out, type);
  appendU32LE(out, uint32_t(timestamp));
  appendU32LE(out, uint32_t(body.size()));
  append(out, body);
  append(out, tail);
  return out;
}

bool takesTailBlock(uint32_t type, ByteView body) {
  return type == kPacketTypeVideo && !body.empty() && body[0] == kVideoTagKeyFrame;
}

std::optional<Bytes> buildVideoSequenceHeaderBody(ByteView sps, ByteView pps, ByteView vps) {
  if (sps.empty() || pps.empty()) return std::nullopt;
  bool hevc = !vps.empty();
  ByteView first = hevc ? vps : sps;
  size_t run = hevc ? sps.size() + sizeof(kStartCode) + pps.size() : pps.size();
  if (!fitsU16(first.size()) || !fitsU16(run)) return std::nullopt;

  Bytes out;
  out.reserve(std::max(kSequenceHeaderArea, kSequenceHeaderFixed + 5 + first.size() + run));
  out.push_back(kVideoTagKeyFrame);
  out.insert(out.end(), 4, 0);  // packet kind and composition time
  out.push_back(kConfigurationVersion);
  for (size_t i = 1; i <= 3; ++i) out.push_back(i < sps.size() ? sps[i] : 0);
  out.push_back(kLengthSizeMark);
  out.push_back(kParameterSetMark);
  appendU16BE(out, uint16_t(first.size()));
  append(out, first);
  out.push_back(kParameterSetCount);
  appendU16BE(out, uint16_t(run));
  if (hevc) {
    append(out, sps);
    append(out, kStartCode);
  }
  append(out, pps);
  return out;
}

std::optional<Bytes> buildVideoSequenceHeaderBody(const LFVideoFrame& frame) {
  if (!hasBytes(frame.sps) || !hasBytes(frame.pps)) return std::nullopt;
  return buildVideoSequenceHeaderBody(*frame.sps, *frame.pps,
                                      frame.vps ? ByteView(*frame.vps) : ByteView());
}

Bytes buildVideoFrameBody(bool isKeyFrame, ByteView data) {
  Bytes out;
  out.reserve(kFrameBodyHead + data.size());
  out.push_back(isKeyFrame ? kVideoTagKeyFrame : kVideoTagInterFrame);
  out.push_back(kVideoKindFrame);
  out.insert(out.end(), 3, 0);  // composition time
  appendU32BE(out, uint32_t(data.size()));
  append(out, data);
  return out;
}

Bytes buildAudioSequenceHeaderBody(ByteView audioInfo) {
  Bytes out{kAudioTagAac, kAudioKindSequenceHeader};
  append(out, audioInfo);
  return out;
}

Bytes buildAudioFrameBody(ByteView data) {
  Bytes out{kAudioTagAac, kAudioKindFrame};
  append(out, data);
  return out;
}

Parsed<PacketHeader> parsePacketHeader(ByteView bytes) {
  WireReader r(bytes);
  if (!r.has(0, kCommonHeaderSize)) return WireError::Truncated;
  PacketHeader h{r.u32LE(0), r.u32LE(4), r.u32LE(8)};
  if (h.type != kPacketTypeAudio && h.type != kPacketTypeVideo) return WireError::WrongType;
  return h;
}

Parsed<VideoBodyKind> videoBodyKind(ByteView body) {
  WireReader r(body);
  if (!r.has(0, 2)) return WireError::Truncated;
  uint8_t tag = r.u8(0), kind = r.u8(1);
  if (tag == kVideoTagKeyFrame && kind == kVideoKindSequenceHeader)
    return VideoBodyKind::SequenceHeader;
  if (tag == kVideoTagKeyFrame && kind == kVideoKindFrame) return VideoBodyKind::KeyFrame;
  if (tag == kVideoTagInterFrame && kind == kVideoKindFrame) return VideoBodyKind::InterFrame;
  return WireError::WrongKind;
}

Parsed<VideoSequenceHeader> parseVideoSequenceHeader(ByteView body, VideoCodec codec) {
  WireReader r(body);
  if (!r.has(0, kSequenceHeaderFixed + 2)) return WireError::Truncated;
  if (r.u8(0) != kVideoTagKeyFrame || r.u8(1) != kVideoKindSequenceHeader)
    return WireError::WrongKind;
  if (!r.allZero(1, 4) || r.u8(5) != kConfigurationVersion || r.u8(9) != kLengthSizeMark ||
      r.u8(10) != kParameterSetMark)
    return WireError::Malformed;
  VideoSequenceHeader h;
  h.profile = {r.u8(6), r.u8(7), r.u8(8)};
  size_t firstLength = r.u16BE(11);
  size_t at = kSequenceHeaderFixed + 2;
  if (!r.has(at, firstLength + 3)) return WireError::Truncated;
  Bytes first = r.copy(at, firstLength);
  at += firstLength;
  if (r.u8(at) != kParameterSetCount) return WireError::Malformed;
  size_t runLength = r.u16BE(at + 1);
  at += 3;
  if (!r.has(at, runLength)) return WireError::Truncated;
  if (at + runLength != r.size()) return WireError::BadLength;
  ByteView run = r.view(at, runLength);
  if (codec == VideoCodec::H264) {
    h.sps = std::move(first);
    h.pps.assign(run.begin(), run.end());
  } else {
    auto code = std::search(run.begin(), run.end(), std::begin(kStartCode), std::end(kStartCode));
    if (code == run.end()) return WireError::Malformed;
    h.vps = std::move(first);
    h.sps.assign(run.begin(), code);
    h.pps.assign(code + sizeof(kStartCode), run.end());
  }
  if (h.sps.empty() || h.pps.empty()) return WireError::Malformed;
  for (size_t i = 0; i < 3; ++i)
    if (h.profile[i] != (i + 1 < h.sps.size() ? h.sps[i + 1] : 0)) return WireError::Malformed;
  return h;
}

Parsed<VideoFrameBody> parseVideoFrameBody(ByteView body) {
  auto kind = videoBodyKind(body);
  if (!kind) return kind.error();
  if (*kind == VideoBodyKind::SequenceHeader) return WireError::WrongKind;
  WireReader r(body);
  if (!r.has(0, kFrameBodyHead)) return WireError::Truncated;
  if (!r.allZero(2, 3)) return WireError::Malformed;
  size_t length = r.u32BE(5);
  if (!r.has(kFrameBodyHead, length)) return WireError::Truncated;
  if (kFrameBodyHead + length != r.size()) return WireError::BadLength;
  return VideoFrameBody{*kind == VideoBodyKind::KeyFrame, r.copy(kFrameBodyHead, length)};
}

Parsed<AudioBody> parseAudioBody(ByteView body) {
  WireReader r(body);
  if (!r.has(0, 2)) return WireError::Truncated;
  if (r.u8(0) != kAudioTagAac) return WireError::WrongKind;
  uint8_t kind = r.u8(1);
  if (kind != kAudioKindSequenceHeader && kind != kAudioKindFrame) return WireError::WrongKind;
  return AudioBody{kind == kAudioKindSequenceHeader, r.copy(2, r.size() - 2)};
}

Parsed<std::vector<Bytes>> splitLengthPrefixedUnits(ByteView data) {
  WireReader r(data);
  std::vector<Bytes> units;
  size_t at = 0;
  while (at < r.size()) {
    if (!r.has(at, 4)) return WireError::BadLength;
    size_t length = r.u32BE(at);
    at += 4;
    if (length == 0 || !r.has(at, length)) return WireError::BadLength;
    units.push_back(r.copy(at, length));
    at += length;
  }
  return units;
}

}  // namespace oxelo::wire
