#include "wire/InfoPacket.h"

#include <algorithm>

#include "wire/WireConstants.h"

namespace oxelo::wire {
namespace {

constexpr size_t kFormatOffset = 4;
constexpr size_t kWidthOffset = 8;
constexpr size_t kHeightOffset = 12;
constexpr size_t kFrameRateOffset = 16;
constexpr size_t kVideoBitRateOffset = 20;
constexpr size_t kEncoderOffset = 24;
constexpr size_t kSampleRateOffset = 28;
constexpr size_t kChannelsOffset = 32;
constexpr size_t kAudioBitRateOffset = 36;
constexpr size_t kNameOffset = 44;
constexpr size_t kNameBytes = 240;
constexpr size_t kSizeTableOffset = 288;
constexpr size_t kRateTableOffset = 348;
constexpr size_t kTableSlots = 15;
constexpr size_t kHevcFlagOffset = 408;
constexpr uint32_t kFormatWord = 1;

constexpr size_t kWholeNameLimit = 120;  // fewer units than this are kept whole
constexpr size_t kCutNameLength = 118;

bool isHighSurrogate(char16_t u) { return u >= 0xD800 && u <= 0xDBFF; }

size_t usedSlots(const WireReader& r, size_t offset) {
  size_t used = 0;
  for (size_t i = 0; i < kTableSlots; ++i)
    if (r.u32LE(offset + 4 * i) != 0) used = i + 1;
  return used;
}

}  // namespace

std::u16string infoPacketDeviceName(std::u16string_view name) {
  if (name.size() < kWholeNameLimit) return std::u16string(name);
  std::u16string cut(name.substr(0, kCutNameLength));
  if (isHighSurrogate(cut.back())) cut.pop_back();
  return cut;
}

std::u16string utf16FromUtf8(std::string_view text) {
  static constexpr char32_t kMinimum[] = {0, 0x80, 0x800, 0x10000};
  std::u16string out;
  size_t i = 0;
  while (i < text.size()) {
    uint8_t lead = uint8_t(text[i]);
    size_t extra = lead < 0x80           ? 0
                   : (lead >> 5) == 0x6  ? 1
                   : (lead >> 4) == 0xE  ? 2
                   : (lead >> 3) == 0x1E ? 3
                                         : 4;
    bool ok = extra < 4 && extra < text.size() - i;
    char32_t cp = ok ? char32_t(lead & (0x7F >> extra)) : 0;
    for (size_t k = 1; ok && k <= extra; ++k) {
      uint8_t c = uint8_t(text[i + k]);
      ok = (c & 0xC0) == 0x80;
      cp = cp << 6 | (c & 0x3F);
    }
    ok = ok && cp >= kMinimum[extra] && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF);
    if (!ok) {
      out.push_back(u'\uFFFD');
      ++i;
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(char16_t(0xD800 + (cp >> 10)));
      out.push_back(char16_t(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(char16_t(cp));
    }
    i += extra + 1;
  }
  return out;
}

uint32_t videoSizeWord(int width, int height) {
  return (uint32_t(width) & 0xFFFF) | (uint32_t(height) & 0xFFFF) << 16;
}

int32_t frameRateWord(std::string_view rate) {
  size_t i = 0;
  while (i < rate.size() && (rate[i] == ' ' || rate[i] == '\t' || rate[i] == '\n')) ++i;
  bool negative = false;
  if (i < rate.size() && (rate[i] == '+' || rate[i] == '-')) negative = rate[i++] == '-';
  int64_t value = 0;
  for (; i < rate.size() && rate[i] >= '0' && rate[i] <= '9'; ++i) {
    value = value * 10 + (rate[i] - '0');
    if (value > INT32_MAX) return negative ? INT32_MIN : INT32_MAX;
  }
  return int32_t(negative ? -value : value);
}

Bytes buildInfoPacket(const InfoPacketFields& f) {
  Bytes out(kInfoPacketSize, 0);
  putU32LE(out, 0, kPacketTypeInfo);
  putU32LE(out, kFormatOffset, kFormatWord);
  putU32LE(out, kWidthOffset, f.width);
  putU32LE(out, kHeightOffset, f.height);
  putU32LE(out, kFrameRateOffset, f.frameRate);
  putU32LE(out, kVideoBitRateOffset, f.videoBitRate);
  putU32LE(out, kEncoderOffset, f.videoEncoder);
  if (f.hasAudio) {
    putU32LE(out, kSampleRateOffset, f.audioSampleRate);
    putU32LE(out, kChannelsOffset, f.audioChannels);
    putU32LE(out, kAudioBitRateOffset, f.audioBitRate);
  }
  std::u16string name = infoPacketDeviceName(f.deviceName);
  for (size_t i = 0; i < name.size(); ++i) {
    out[kNameOffset + 2 * i] = uint8_t(name[i]);
    out[kNameOffset + 2 * i + 1] = uint8_t(name[i] >> 8);
  }
  size_t sizes = std::min(f.videoSizes.size(), kTableSlots);
  for (size_t i = 0; i < sizes; ++i)
    putU32LE(out, kSizeTableOffset + 4 * i,
             videoSizeWord(f.videoSizes[i].width, f.videoSizes[i].height));
  size_t rates = std::min(f.videoFrameRates.size(), kTableSlots);
  for (size_t i = 0; i < rates; ++i)
    putI32LE(out, kRateTableOffset + 4 * i, frameRateWord(f.videoFrameRates[i]));
  putU32LE(out, kHevcFlagOffset, f.hevcDecodeSupported ? 1 : 0);
  return out;
}

Parsed<InfoPacket> parseInfoPacket(ByteView bytes) {
  WireReader r(bytes);
  if (!r.has(0, kInfoPacketSize)) return WireError::Truncated;
  if (r.u32LE(0) != kPacketTypeInfo) return WireError::WrongType;
  if (r.u32LE(kFormatOffset) != kFormatWord) return WireError::Malformed;
  if (!r.allZero(40, 4) || !r.allZero(284, 4) || !r.allZero(412, 32)) return WireError::Malformed;
  InfoPacket p;
  p.width = r.u32LE(kWidthOffset);
  p.height = r.u32LE(kHeightOffset);
  p.frameRate = r.u32LE(kFrameRateOffset);
  p.videoBitRate = r.u32LE(kVideoBitRateOffset);
  p.videoEncoder = r.u32LE(kEncoderOffset);
  p.audioSampleRate = r.u32LE(kSampleRateOffset);
  p.audioChannels = r.u32LE(kChannelsOffset);
  p.audioBitRate = r.u32LE(kAudioBitRateOffset);
  size_t unit = 0;
  for (; unit < kNameBytes / 2; ++unit) {
    char16_t u = char16_t(r.u8(kNameOffset + 2 * unit) | r.u8(kNameOffset + 2 * unit + 1) << 8);
    if (u == 0) break;
    p.deviceName.push_back(u);
  }
  // A whole name has at most 119 units, so the field always ends in zeros.
  if (unit == kNameBytes / 2) return WireError::Malformed;
  size_t fillStart = kNameOffset + 2 * unit;
  if (!r.allZero(fillStart, kNameOffset + kNameBytes - fillStart)) return WireError::Malformed;
  for (size_t i = 0, n = usedSlots(r, kSizeTableOffset); i < n; ++i) {
    uint32_t w = r.u32LE(kSizeTableOffset + 4 * i);
    p.videoSizes.push_back({uint16_t(w & 0xFFFF), uint16_t(w >> 16)});
  }
  for (size_t i = 0, n = usedSlots(r, kRateTableOffset); i < n; ++i)
    p.frameRates.push_back(r.i32LE(kRateTableOffset + 4 * i));
  uint32_t hevc = r.u32LE(kHevcFlagOffset);
  if (hevc > 1) return WireError::Malformed;
  p.hevcDecodeSupported = hevc == 1;
  return p;
}

}  // namespace oxelo::wire
