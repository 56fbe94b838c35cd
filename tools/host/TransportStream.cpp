#include "tools/host/TransportStream.h"

#include <algorithm>

namespace oxelo::host::ts {

namespace {

constexpr uint64_t kTimeMask = (uint64_t(1) << 33) - 1;
// How far the clock runs ahead of the decoding times: a tenth of a second.
constexpr uint64_t kPcrLead = 9000;
constexpr size_t kHeaderSize = 4;
constexpr size_t kPcrFieldSize = 8;  // length, flags, six bytes of clock

void putWord(std::vector<uint8_t>& out, uint16_t value) {
  out.push_back(uint8_t(value >> 8));
  out.push_back(uint8_t(value));
}

// The 12-bit section length that follows its own field, CRC included.
void finishSection(std::vector<uint8_t>& section) {
  const size_t length = section.size() - 3 + 4;
  section[1] = uint8_t(0xB0 | (length >> 8));
  section[2] = uint8_t(length);
  const uint32_t crc = crc32Mpeg2(section);
  for (int shift = 24; shift >= 0; shift -= 8) section.push_back(uint8_t(crc >> shift));
}

// A 33-bit time with its 4-bit prefix and marker bits, as PES headers hold it.
void putTime(std::vector<uint8_t>& out, uint8_t prefix, uint64_t time) {
  time &= kTimeMask;
  out.push_back(uint8_t(prefix << 4 | (time >> 30) << 1 | 1));
  out.push_back(uint8_t(time >> 22));
  out.push_back(uint8_t((time >> 15) << 1 | 1));
  out.push_back(uint8_t(time >> 7));
  out.push_back(uint8_t(time << 1 | 1));
}

}  // namespace

uint32_t crc32Mpeg2(std::span<const uint8_t> bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (uint8_t byte : bytes) {
    crc ^= uint32_t(byte) << 24;
    for (int bit = 0; bit < 8; ++bit) crc = crc & 0x80000000 ? crc << 1 ^ 0x04C11DB7 : crc << 1;
  }
  return crc;
}

std::vector<uint8_t> patSection() {
  std::vector<uint8_t> s = {0x00, 0xB0, 0x00,  // table 0, length below
                            0x00, 0x01,        // transport stream 1
                            0xC1, 0x00, 0x00,  // version 0, current; section 0 of 0
                            0x00, 0x01};       // program 1
  putWord(s, 0xE000 | kPmtPid);
  finishSection(s);
  return s;
}

std::vector<uint8_t> pmtSection(uint8_t videoStreamType, bool audio) {
  std::vector<uint8_t> s = {0x02, 0xB0, 0x00,  // table 2, length below
                            0x00, 0x01,        // program 1
                            0xC1, 0x00, 0x00};
  putWord(s, 0xE000 | kVideoPid);  // the clock's PID
  putWord(s, 0xF000);              // no program descriptors
  auto stream = [&](uint8_t type, uint16_t pid) {
    s.push_back(type);
    putWord(s, 0xE000 | pid);
    putWord(s, 0xF000);
  };
  stream(videoStreamType, kVideoPid);
  if (audio) stream(kStreamTypeAdts, kAudioPid);
  finishSection(s);
  return s;
}

std::vector<uint8_t> pesHeader(uint8_t streamId, uint64_t pts, std::optional<uint64_t> dts,
                               size_t payloadSize) {
  const uint8_t timesSize = dts ? 10 : 5;
  const size_t length = 3 + timesSize + payloadSize;  // what follows the length field
  std::vector<uint8_t> h = {0x00, 0x00, 0x01, streamId};
  putWord(h, length > 0xFFFF ? 0 : uint16_t(length));
  h.push_back(0x84);  // data aligned
  h.push_back(dts ? 0xC0 : 0x80);
  h.push_back(timesSize);
  putTime(h, dts ? 0x3 : 0x2, pts);
  if (dts) putTime(h, 0x1, *dts);
  return h;
}

std::optional<AacConfig> parseAudioSpecificConfig(std::span<const uint8_t> config) {
  if (config.size() < 2) return std::nullopt;
  AacConfig c;
  c.objectType = config[0] >> 3;
  c.sampleRateIndex = uint8_t((config[0] & 0x07) << 1 | config[1] >> 7);
  c.channelConfiguration = (config[1] >> 3) & 0x0F;
  if (c.objectType < 1 || c.objectType > 4) return std::nullopt;
  if (c.sampleRateIndex > 12) return std::nullopt;
  if (c.channelConfiguration < 1 || c.channelConfiguration > 7) return std::nullopt;
  return c;
}

std::optional<std::array<uint8_t, 7>> adtsHeader(const AacConfig& config, size_t frameSize) {
  const size_t length = frameSize + 7;
  if (length > 0x1FFF) return std::nullopt;
  const uint8_t profile = config.objectType - 1;
  const uint8_t channels = config.channelConfiguration;
  return std::array<uint8_t, 7>{
      0xFF,
      0xF1,  // sync word, MPEG-4, layer 0, no CRC
      uint8_t(profile << 6 | config.sampleRateIndex << 2 | channels >> 2),
      uint8_t((channels & 3) << 6 | length >> 11),
      uint8_t(length >> 3),
      uint8_t((length & 7) << 5 | 0x1F),  // buffer fullness 0x7FF: variable rate
      0xFC,                               // one raw data block
  };
}

Writer::Writer(uint8_t videoStreamType, bool audio, Output output)
    : videoStreamType_(videoStreamType), audio_(audio), output_(std::move(output)) {}

uint8_t Writer::nextCounter(uint16_t pid) {
  uint8_t& counter = pid == 0           ? patCounter_
                     : pid == kPmtPid   ? counters_[0]
                     : pid == kVideoPid ? counters_[1]
                                        : counters_[2];
  const uint8_t now = counter;
  counter = (counter + 1) & 0x0F;
  return now;
}

void Writer::writeSection(uint16_t pid, const std::vector<uint8_t>& section) {
  std::array<uint8_t, kPacketSize> p;
  p.fill(0xFF);
  p[0] = 0x47;
  p[1] = uint8_t(0x40 | pid >> 8);  // the payload starts here
  p[2] = uint8_t(pid);
  p[3] = uint8_t(0x10 | nextCounter(pid));
  p[4] = 0x00;  // pointer field
  std::copy(section.begin(), section.end(), p.begin() + 5);
  output_(p);
}

void Writer::writeTables() {
  writeSection(0, patSection());
  writeSection(kPmtPid, pmtSection(videoStreamType_, audio_));
  tablesWritten_ = true;
}

void Writer::writePes(uint16_t pid, std::span<const uint8_t> pes, std::optional<uint64_t> pcr,
                      bool randomAccess) {
  buffer_.clear();
  size_t at = 0;
  bool first = true;
  while (at < pes.size()) {
    std::array<uint8_t, kPacketSize> p;
    p[0] = 0x47;
    p[1] = uint8_t((first ? 0x40 : 0x00) | pid >> 8);
    p[2] = uint8_t(pid);
    const bool clock = first && pcr;
    const bool flagged = clock || (first && randomAccess);
    // What the adaptation field must hold at least, before any stuffing.
    const size_t fieldSize = clock ? kPcrFieldSize : flagged ? 2 : 0;
    const size_t room = kPacketSize - kHeaderSize - fieldSize;
    const size_t take = std::min(room, pes.size() - at);
    const size_t field = kPacketSize - kHeaderSize - take;  // the field with its stuffing
    p[3] = uint8_t((field > 0 ? 0x30 : 0x10) | nextCounter(pid));
    size_t w = kHeaderSize;
    if (field > 0) {
      p[w++] = uint8_t(field - 1);
      if (field > 1) {
        p[w++] = uint8_t((randomAccess && first ? 0x40 : 0x00) | (clock ? 0x10 : 0x00));
        if (clock) {
          const uint64_t base = *pcr & kTimeMask;
          p[w++] = uint8_t(base >> 25);
          p[w++] = uint8_t(base >> 17);
          p[w++] = uint8_t(base >> 9);
          p[w++] = uint8_t(base >> 1);
          p[w++] = uint8_t(base << 7 | 0x7E);  // six reserved bits, extension 0
          p[w++] = 0x00;
        }
        while (w < kHeaderSize + field) p[w++] = 0xFF;
      }
    }
    std::copy_n(pes.begin() + at, take, p.begin() + w);
    at += take;
    first = false;
    buffer_.insert(buffer_.end(), p.begin(), p.end());
  }
  output_(buffer_);
}

void Writer::writeVideo(uint64_t pts, uint64_t dts, bool key, std::span<const uint8_t> annexB) {
  if (key || !tablesWritten_) writeTables();
  std::vector<uint8_t> pes =
      pesHeader(kVideoStreamId, pts, pts == dts ? std::nullopt : std::optional(dts), annexB.size());
  pes.insert(pes.end(), annexB.begin(), annexB.end());
  writePes(kVideoPid, pes, dts > kPcrLead ? dts - kPcrLead : 0, key);
}

void Writer::writeAudio(uint64_t pts, std::span<const uint8_t> adtsFrame) {
  if (!audio_) return;
  if (!tablesWritten_) writeTables();
  std::vector<uint8_t> pes = pesHeader(kAudioStreamId, pts, std::nullopt, adtsFrame.size());
  pes.insert(pes.end(), adtsFrame.begin(), adtsFrame.end());
  writePes(kAudioPid, pes, std::nullopt, /*randomAccess=*/true);
}

}  // namespace oxelo::host::ts
