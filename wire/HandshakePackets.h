#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "wire/WireBytes.h"
#include "wire/WireConstants.h"

namespace oxelo {

// The packets of the greeting that runs on every new channel to the host
// before any video flows. All are little-endian 32-bit words; word 0 is the
// command type of the stream (wire::kPacketTypeCommand, 136 or 0x88), word 1
// the command, and the command fixes the size.
namespace handshake {

using Bytes = oxelo::Bytes;

inline constexpr uint32_t kType = wire::kPacketTypeCommand;
inline constexpr uint32_t kHostInfo = 16;       // 0x10, host to phone, 80 bytes
inline constexpr uint32_t kStart = 17;          // 0x11, host to phone, 20 bytes
inline constexpr uint32_t kVideoSettings = 19;  // 0x13, 36 bytes from the host, 48 back
inline constexpr uint32_t kHelloMark = 32;      // word 2 of the long hello

inline constexpr size_t kHostInfoSize = 80;
inline constexpr size_t kStartSize = 20;
inline constexpr size_t kVideoSettingsSize = 36;
inline constexpr size_t kSettingsAnswerSize = 48;
inline constexpr size_t kHostNameField = 68;

// TCP tags and USB frame tags of the exchange; every USB frame has type 88.
inline constexpr long kTagRead = 8800;
inline constexpr long kTagHello = 8810;
inline constexpr long kTagFirstRead = 8811;
inline constexpr long kTagSettings = 8813;
inline constexpr uint32_t kUsbFrameType = 88;
inline constexpr double kWriteTimeout = 5.0;

// The video settings a host may dictate (command 19) and that the phone
// reports back in force before the stream starts.
struct VideoSettings {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t fps = 0;
  uint32_t portrait = 0;  // from the host any non-zero value; back: 0 or 1
  uint32_t quality = 0;
  uint32_t encoder = 0;
  uint32_t audioFormat = 0;
  bool operator==(const VideoSettings&) const = default;
};

// Phone to host: the two hello forms, always sent together, long one first.
Bytes helloLong();
Bytes helloShort();
// Phone to host: the 48-byte settings in force.
Bytes settingsAnswer(const VideoSettings& settings);

// Host to phone.
Bytes hostInfo(uint32_t port, const std::string& name);
Bytes start();
Bytes videoSettings(const VideoSettings& settings);

// The size in bytes of a host packet with this command, or 0 when unknown.
size_t hostPacketSize(uint32_t command);

// Readers for both ends; none when the bytes are too short or not that packet.
struct HostInfo {
  uint32_t port = 0;
  std::string name;
};
std::optional<HostInfo> readHostInfo(const uint8_t* data, size_t size);
std::optional<VideoSettings> readVideoSettings(const uint8_t* data, size_t size);
std::optional<VideoSettings> readSettingsAnswer(const uint8_t* data, size_t size);

}  // namespace handshake
}  // namespace oxelo
