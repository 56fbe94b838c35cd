#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace oxelo {

enum class VideoCodec { h264, hevc };

// What a NAL unit is, as far as the frame records care.
enum class NalKind { other, vps, sps, pps, accessUnitDelimiter };

// The kind of one NAL unit (without start code) of `codec`. An empty unit is
// `other`.
NalKind nalKind(VideoCodec codec, std::span<const uint8_t> unit);

// The NAL units of an Annex B byte stream, without their start codes and
// without the zero bytes that stand between a unit and the next start code.
// Bytes before the first start code are ignored.
std::vector<std::span<const uint8_t>> splitAnnexB(std::span<const uint8_t> stream);

// The parameter sets found in one access unit, without start codes; empty
// where the unit carries none of that kind.
struct ParameterSets {
  std::vector<uint8_t> vps;
  std::vector<uint8_t> sps;
  std::vector<uint8_t> pps;
};

// One access unit in the layout of the frame records: every NAL unit that is
// neither a parameter set nor an access unit delimiter, each behind a 4-byte
// big-endian length, in stream order. The first parameter set of each kind
// goes to `parameterSets` instead.
struct LengthPrefixedUnit {
  std::vector<uint8_t> data;
  ParameterSets parameterSets;
};

LengthPrefixedUnit rewriteAccessUnit(VideoCodec codec, std::span<const uint8_t> annexB);

}  // namespace oxelo
