#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "wire/WireBytes.h"

// The info packet: the first record on every connection, 444 bytes, no
// common header. It tells the host the stream's numbers, the device's name
// and the sizes and rates the device can offer.
namespace oxelo::wire {

// One entry of the size catalogue, in catalogue order.
struct VideoSizeEntry {
  int width = 0;
  int height = 0;
  double fps = 0;  // not on the wire
};

// Everything the info packet tells, as plain values: the caller reads them
// from the video and audio configurations, the settings and the catalogue.
struct InfoPacketFields {
  uint32_t width = 0;  // of the configuration's videoSize
  uint32_t height = 0;
  uint32_t frameRate = 0;
  uint32_t videoBitRate = 0;  // bits per second
  uint32_t videoEncoder = 0;  // the setting videoEncoder: 0 H.264, 1 HEVC
  bool hasAudio = true;       // the setting audioFormat is 1 or more
  uint32_t audioSampleRate = 0;
  uint32_t audioChannels = 0;
  uint32_t audioBitRate = 0;                 // bits per second
  std::u16string deviceName;                 // the user-visible name, UTF-16
  std::vector<VideoSizeEntry> videoSizes;    // at most 15 are sent
  std::vector<std::string> videoFrameRates;  // decimal texts; at most 15 sent
  bool hevcDecodeSupported = false;
};

// The 444 bytes. Audio words are 0 without audio; the name is cut by
// infoPacketDeviceName().
Bytes buildInfoPacket(const InfoPacketFields& fields);

// The name as it goes into the 240-byte field: fewer than 120 code units are
// kept whole, 120 or more are cut to 118. A cut that would leave the first
// half of a surrogate pair at the end drops that half too.
std::u16string infoPacketDeviceName(std::u16string_view name);

// UTF-8 to UTF-16; a byte that does not belong to a well-formed sequence
// becomes U+FFFD.
std::u16string utf16FromUtf8(std::string_view text);

// A size table word: width in bits 0 to 15, height in bits 16 to 31.
uint32_t videoSizeWord(int width, int height);

// A frame rate table word: the leading integer of a decimal text ("29.97"
// gives 29, "abc" 0), as the catalogue's texts are read everywhere.
int32_t frameRateWord(std::string_view rate);

// What a host reads from the info packet.
struct InfoPacket {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t frameRate = 0;
  uint32_t videoBitRate = 0;
  uint32_t videoEncoder = 0;
  uint32_t audioSampleRate = 0;
  uint32_t audioChannels = 0;
  uint32_t audioBitRate = 0;
  std::u16string deviceName;  // up to the first zero code unit
  struct Size {
    uint16_t width = 0;
    uint16_t height = 0;
    bool operator==(const Size&) const = default;
  };
  std::vector<Size> videoSizes;     // up to the last non-zero slot
  std::vector<int32_t> frameRates;  // up to the last non-zero slot
  bool hevcDecodeSupported = false;
};

// Reads the first 444 bytes. Truncated when fewer; WrongType when the first
// word is not 18; Malformed when the format word is not 1, a reserved byte or
// the zero fill behind the name is not 0, or the HEVC flag is neither 0 nor 1.
Parsed<InfoPacket> parseInfoPacket(ByteView bytes);

}  // namespace oxelo::wire
