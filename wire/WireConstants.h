#pragma once

#include <cstddef>
#include <cstdint>

// The numbers of the stream that the phone writes to the host after the
// handshake, and of the commands that come back on it. All words are
// little-endian unless a layout says big-endian.
namespace oxelo::wire {

// First word of every record.
inline constexpr uint32_t kPacketTypeAudio = 8;      // RTMP_PACKET_TYPE_AUDIO
inline constexpr uint32_t kPacketTypeVideo = 9;      // RTMP_PACKET_TYPE_VIDEO
inline constexpr uint32_t kPacketTypeTail = 16;      // status or capability block
inline constexpr uint32_t kPacketTypeInfo = 18;      // RTMP_PACKET_TYPE_INFO
inline constexpr uint32_t kPacketTypeCommand = 136;  // commands, both ways

// Fixed sizes.
inline constexpr size_t kCommonHeaderSize = 12;  // type, timestamp, body size
inline constexpr size_t kInfoPacketSize = 444;
inline constexpr size_t kStatusBlockSize = 56;
inline constexpr size_t kCapabilityBlockSize = 88;
inline constexpr size_t kCommandPacketSize = 12;  // phone to host
inline constexpr size_t kStopNoticeSize = 8;
// The zeroed scratch area in which a video sequence header body is laid out.
inline constexpr size_t kSequenceHeaderArea = 1024;

// Kind words of the two tail blocks, and the size words they carry (the
// bytes behind their 12-byte head).
inline constexpr uint32_t kStatusBlockKind = 0x00020002;
inline constexpr uint32_t kCapabilityBlockKind = 0x00010001;
inline constexpr uint32_t kStatusBlockBodySize = 44;
inline constexpr uint32_t kCapabilityBlockBodySize = 76;

// First body byte of video and audio bodies.
inline constexpr uint8_t kVideoTagKeyFrame = 0x17;  // also the sequence header
inline constexpr uint8_t kVideoTagInterFrame = 0x27;
inline constexpr uint8_t kAudioTagAac = 0xAF;
// Second body byte.
inline constexpr uint8_t kVideoKindSequenceHeader = 0;
inline constexpr uint8_t kVideoKindFrame = 1;
inline constexpr uint8_t kAudioKindSequenceHeader = 0;
inline constexpr uint8_t kAudioKindFrame = 1;

// The video encoder word of the info packet (the setting `videoEncoder`).
enum class VideoCodec : uint32_t { H264 = 0, HEVC = 1 };

}  // namespace oxelo::wire
