#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "wire/WireBytes.h"

// How each record travels on the two carriers. Over TCP one write carries a
// packet with its tail block; its tag feeds the socket's write statistics
// (0: a video write at timestamp 0, 1: info and audio, 2 or more: a video
// timestamp or a command). Over USB each record is the payload of one frame
// of the framed channel, and a tail block travels as a frame of its own.
namespace oxelo::wire {

// TCP writes.
inline constexpr double kNoWriteTimeout = -1.0;
inline constexpr double kCommandWriteTimeout = 5.0;
inline constexpr long kTcpTagInfo = 1;
inline constexpr long kTcpTagAudio = 1;
inline constexpr long kCommandTagBase = 8800;  // + command, TCP and USB

// USB frames.
inline constexpr uint32_t kUsbFrameTypeAudio = 8;
inline constexpr uint32_t kUsbFrameTypeVideo = 9;
inline constexpr uint32_t kUsbFrameTypeInfo = 18;
inline constexpr uint32_t kUsbFrameTypeControl = 88;  // tail blocks, commands, stop notice
inline constexpr uint32_t kUsbTagInfo = 1;
inline constexpr uint32_t kUsbTagAudio = 1;
inline constexpr uint32_t kUsbTagTailBlock = 8821;
inline constexpr uint32_t kUsbTagStopNotice = 8814;

enum class WireContent { Info, Video, Audio, Command, StopNotice };

struct TcpRoute {
  long tag = 0;
  double timeout = kNoWriteTimeout;  // seconds; negative: none
  bool operator==(const TcpRoute&) const = default;
};

struct UsbRoute {
  uint32_t type = 0;
  uint32_t tag = 0;
  bool operator==(const UsbRoute&) const = default;
};

// The write tag and time-out of a record over TCP: video takes its
// timestamp as tag, a command 8800 + its number with 5.0 seconds. Nothing
// for the stop notice, which TCP never sends.
std::optional<TcpRoute> tcpRoute(WireContent content, uint64_t timestamp = 0, uint32_t command = 0);

// The frame type and tag of a record over USB: video takes the low 32 bits
// of its timestamp as tag.
UsbRoute usbRoute(WireContent content, uint64_t timestamp = 0, uint32_t command = 0);

// Both carriers' numbers for one record, so that whoever hands the record to
// a carrier need not know which kind it has. `tag` is the TCP write tag, and
// its low 32 bits the tag of the USB frame; the tail block, when the record
// has one, is a USB frame of its own with `tailFrameType` and `tailTag`.
struct CarrierRoute {
  int64_t tag = 0;
  double timeout = kNoWriteTimeout;  // TCP only; negative: none
  uint32_t frameType = 0;            // USB
  uint32_t tailFrameType = kUsbFrameTypeControl;
  uint32_t tailTag = kUsbTagTailBlock;
  bool framedOnly = false;  // never written over TCP (the stop notice)
  bool operator==(const CarrierRoute&) const = default;
};

CarrierRoute carrierRoute(WireContent content, uint64_t timestamp = 0, uint32_t command = 0);

// A record ready for a carrier: the packet (header and body) and the tail
// block that rides behind it, if any.
struct OutgoingPacket {
  WireContent content = WireContent::Video;
  Bytes packet;
  Bytes tail;
  uint64_t timestamp = 0;  // video only
  uint32_t command = 0;    // commands only
};

struct TcpWrite {
  Bytes bytes;  // packet and tail in one buffer
  long tag = 0;
  double timeout = kNoWriteTimeout;
};

struct UsbFrame {
  uint32_t type = 0;
  uint32_t tag = 0;
  Bytes payload;
  bool operator==(const UsbFrame&) const = default;
};

std::optional<TcpWrite> tcpWriteFor(const OutgoingPacket& packet);

// The packet's frame, then the tail block's frame (type 88, tag 8821) when
// there is one.
std::vector<UsbFrame> usbFramesFor(const OutgoingPacket& packet);

}  // namespace oxelo::wire
