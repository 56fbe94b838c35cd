#include "encoding/NalUnits.h"

namespace oxelo {

namespace {

// The position of the next 00 00 01 at or after `from`, or size when none.
size_t findStartCode(std::span<const uint8_t> s, size_t from) {
  for (size_t i = from; i + 2 < s.size(); ++i) {
    if (s[i + 2] > 1) {
      i += 2;  // no start code can end before i + 3
      continue;
    }
    if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1) return i;
  }
  return s.size();
}

void appendLengthPrefixed(std::vector<uint8_t>& out, std::span<const uint8_t> unit) {
  const auto n = static_cast<uint32_t>(unit.size());
  out.push_back(static_cast<uint8_t>(n >> 24));
  out.push_back(static_cast<uint8_t>(n >> 16));
  out.push_back(static_cast<uint8_t>(n >> 8));
  out.push_back(static_cast<uint8_t>(n));
  out.insert(out.end(), unit.begin(), unit.end());
}

void keepFirst(std::vector<uint8_t>& slot, std::span<const uint8_t> unit) {
  if (slot.empty()) slot.assign(unit.begin(), unit.end());
}

}  // namespace

NalKind nalKind(VideoCodec codec, std::span<const uint8_t> unit) {
  if (unit.empty()) return NalKind::other;
  if (codec == VideoCodec::h264) {
    switch (unit[0] & 0x1f) {
      case 7:
        return NalKind::sps;
      case 8:
        return NalKind::pps;
      case 9:
        return NalKind::accessUnitDelimiter;
      default:
        return NalKind::other;
    }
  }
  switch ((unit[0] >> 1) & 0x3f) {
    case 32:
      return NalKind::vps;
    case 33:
      return NalKind::sps;
    case 34:
      return NalKind::pps;
    case 35:
      return NalKind::accessUnitDelimiter;
    default:
      return NalKind::other;
  }
}

std::vector<std::span<const uint8_t>> splitAnnexB(std::span<const uint8_t> stream) {
  std::vector<std::span<const uint8_t>> units;
  size_t start = findStartCode(stream, 0);
  while (start < stream.size()) {
    const size_t begin = start + 3;
    const size_t next = findStartCode(stream, begin);
    size_t end = next;
    while (end > begin && stream[end - 1] == 0) --end;  // zero bytes before the next start code
    if (end > begin) units.push_back(stream.subspan(begin, end - begin));
    start = next;
  }
  return units;
}

LengthPrefixedUnit rewriteAccessUnit(VideoCodec codec, std::span<const uint8_t> annexB) {
  LengthPrefixedUnit result;
  result.data.reserve(annexB.size() + 16);
  for (auto unit : splitAnnexB(annexB)) {
    switch (nalKind(codec, unit)) {
      case NalKind::vps:
        keepFirst(result.parameterSets.vps, unit);
        break;
      case NalKind::sps:
        keepFirst(result.parameterSets.sps, unit);
        break;
      case NalKind::pps:
        keepFirst(result.parameterSets.pps, unit);
        break;
      case NalKind::accessUnitDelimiter:
        break;
      case NalKind::other:
        appendLengthPrefixed(result.data, unit);
        break;
    }
  }
  return result;
}

}  // namespace oxelo
