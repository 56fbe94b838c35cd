#include "wire/HandshakePackets.h"

#include <algorithm>

namespace oxelo::handshake {

namespace {

using wire::appendU32LE;
using wire::WireReader;

constexpr size_t kSettingsWords = 7;

// The head of every handshake packet: the command type, then the command.
Bytes packetHead(uint32_t command) {
  Bytes out;
  appendU32LE(out, kType);
  appendU32LE(out, command);
  return out;
}

void appendSettings(Bytes& out, const VideoSettings& s, uint32_t portrait) {
  for (uint32_t w : {s.width, s.height, s.fps, portrait, s.quality, s.encoder, s.audioFormat})
    appendU32LE(out, w);
}

// Whether `r` holds `size` bytes that start with the head of `command`.
bool isPacket(const WireReader& r, uint32_t command, size_t size) {
  return r.has(0, size) && r.u32LE(0) == kType && r.u32LE(4) == command;
}

std::optional<VideoSettings> readSettings(const uint8_t* data, size_t size, size_t expected) {
  WireReader r(wire::ByteView(data, size));
  if (!isPacket(r, kVideoSettings, expected)) return std::nullopt;
  VideoSettings s;
  uint32_t* fields[kSettingsWords] = {&s.width,   &s.height,  &s.fps,        &s.portrait,
                                      &s.quality, &s.encoder, &s.audioFormat};
  for (size_t i = 0; i < kSettingsWords; ++i) *fields[i] = r.u32LE(8 + 4 * i);
  return s;
}

}  // namespace

Bytes helloLong() {
  Bytes out = packetHead(kHostInfo);
  appendU32LE(out, kHelloMark);
  appendU32LE(out, 0);
  return out;
}

// The long form's first three words as one byte each.
Bytes helloShort() { return {uint8_t(kType), uint8_t(kHostInfo), uint8_t(kHelloMark), 0}; }

Bytes settingsAnswer(const VideoSettings& settings) {
  Bytes out = packetHead(kVideoSettings);
  appendSettings(out, settings, settings.portrait ? 1 : 0);
  out.resize(kSettingsAnswerSize, 0);
  return out;
}

Bytes hostInfo(uint32_t port, const std::string& name) {
  Bytes out = packetHead(kHostInfo);
  appendU32LE(out, port);
  // The name field ends with a 0 byte, so at most 67 bytes of text fit.
  size_t n = std::min(name.size(), kHostNameField - 1);
  out.insert(out.end(), name.begin(), name.begin() + static_cast<long>(n));
  out.resize(kHostInfoSize, 0);
  return out;
}

Bytes start() {
  Bytes out = packetHead(kStart);
  out.resize(kStartSize, 0);
  return out;
}

Bytes videoSettings(const VideoSettings& settings) {
  Bytes out = packetHead(kVideoSettings);
  appendSettings(out, settings, settings.portrait);
  return out;
}

size_t hostPacketSize(uint32_t command) {
  switch (command) {
    case kHostInfo:
      return kHostInfoSize;
    case kStart:
      return kStartSize;
    case kVideoSettings:
      return kVideoSettingsSize;
    default:
      return 0;
  }
}

std::optional<HostInfo> readHostInfo(const uint8_t* data, size_t size) {
  WireReader r(wire::ByteView(data, size));
  if (!isPacket(r, kHostInfo, kHostInfoSize)) return std::nullopt;
  HostInfo info;
  info.port = r.u32LE(8);
  auto field = r.view(12, kHostNameField);
  auto end = std::find(field.begin(), field.end(), uint8_t{0});
  info.name.assign(field.begin(), end);
  return info;
}

std::optional<VideoSettings> readVideoSettings(const uint8_t* data, size_t size) {
  return readSettings(data, size, kVideoSettingsSize);
}

std::optional<VideoSettings> readSettingsAnswer(const uint8_t* data, size_t size) {
  return readSettings(data, size, kSettingsAnswerSize);
}

}  // namespace oxelo::handshake
