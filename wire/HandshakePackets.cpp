#include "wire/HandshakePackets.h"

#include <cstring>

namespace oxelo::handshake {

uint32_t readWord(const uint8_t* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void appendWord(Bytes& out, uint32_t value) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

namespace {
void appendSettings(Bytes& out, const VideoSettings& s, uint32_t portrait) {
  for (uint32_t w : {s.width, s.height, s.fps, portrait, s.quality, s.encoder, s.audioFormat})
    appendWord(out, w);
}

std::optional<VideoSettings> readSettings(const uint8_t* data, size_t size, size_t expected) {
  if (size < expected || readWord(data) != kType || readWord(data + 4) != kVideoSettings) {
    return std::nullopt;
  }
  VideoSettings s;
  uint32_t* fields[] = {&s.width,   &s.height,  &s.fps,        &s.portrait,
                        &s.quality, &s.encoder, &s.audioFormat};
  for (size_t i = 0; i < 7; ++i) *fields[i] = readWord(data + 8 + 4 * i);
  return s;
}
}  // namespace

Bytes helloLong() {
  Bytes out;
  for (uint32_t w : {kType, kHostInfo, 32u, 0u}) appendWord(out, w);
  return out;
}

Bytes helloShort() { return {0x88, 0x10, 0x20, 0x00}; }

Bytes settingsAnswer(const VideoSettings& settings) {
  Bytes out;
  appendWord(out, kType);
  appendWord(out, kVideoSettings);
  appendSettings(out, settings, settings.portrait ? 1 : 0);
  out.resize(kSettingsAnswerSize, 0);
  return out;
}

Bytes hostInfo(uint32_t port, const std::string& name) {
  Bytes out;
  appendWord(out, kType);
  appendWord(out, kHostInfo);
  appendWord(out, port);
  // The name field ends with a 0 byte, so at most 67 bytes of text fit.
  size_t n = std::min(name.size(), kHostNameField - 1);
  out.insert(out.end(), name.begin(), name.begin() + static_cast<long>(n));
  out.resize(kHostInfoSize, 0);
  return out;
}

Bytes start() {
  Bytes out;
  appendWord(out, kType);
  appendWord(out, kStart);
  out.resize(kStartSize, 0);
  return out;
}

Bytes videoSettings(const VideoSettings& settings) {
  Bytes out;
  appendWord(out, kType);
  appendWord(out, kVideoSettings);
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
  if (size < kHostInfoSize || readWord(data) != kType || readWord(data + 4) != kHostInfo) {
    return std::nullopt;
  }
  HostInfo info;
  info.port = readWord(data + 8);
  const char* text = reinterpret_cast<const char*>(data + 12);
  info.name.assign(text, strnlen(text, kHostNameField));
  return info;
}

std::optional<VideoSettings> readVideoSettings(const uint8_t* data, size_t size) {
  return readSettings(data, size, kVideoSettingsSize);
}

std::optional<VideoSettings> readSettingsAnswer(const uint8_t* data, size_t size) {
  return readSettings(data, size, kSettingsAnswerSize);
}

}  // namespace oxelo::handshake
