#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace oxelo::host::ts {

// MPEG transport stream, as much of it as the recorder needs to hand the
// phone's stream to ffmpeg: one program, a video stream and at most one AAC
// stream, times at 90 kHz.

inline constexpr size_t kPacketSize = 188;
inline constexpr uint16_t kPmtPid = 0x1000;
inline constexpr uint16_t kVideoPid = 0x100;
inline constexpr uint16_t kAudioPid = 0x101;
inline constexpr uint8_t kStreamTypeH264 = 0x1B;
inline constexpr uint8_t kStreamTypeHevc = 0x24;
inline constexpr uint8_t kStreamTypeAdts = 0x0F;
inline constexpr uint8_t kVideoStreamId = 0xE0;
inline constexpr uint8_t kAudioStreamId = 0xC0;

// CRC-32/MPEG-2 (polynomial 0x04C11DB7, initial value all ones, no
// reflection, no final inversion), as the tables carry it.
uint32_t crc32Mpeg2(std::span<const uint8_t> bytes);

// The program association section for program 1 on kPmtPid, CRC included.
std::vector<uint8_t> patSection();

// The program map section of program 1: the video stream on kVideoPid,
// which carries the clock, and, when `audio`, ADTS on kAudioPid.
std::vector<uint8_t> pmtSection(uint8_t videoStreamType, bool audio);

// The header of a PES packet that carries `payloadSize` bytes. A DTS is
// written only when given; the packet length is 0 (unbounded, for video)
// when it does not fit 16 bits. Times are 33-bit, at 90 kHz.
std::vector<uint8_t> pesHeader(uint8_t streamId, uint64_t pts, std::optional<uint64_t> dts,
                               size_t payloadSize);

// What the ADTS header needs from an AudioSpecificConfig.
struct AacConfig {
  uint8_t objectType = 0;            // 2 for AAC-LC
  uint8_t sampleRateIndex = 0;       // into the standard table, 0 to 12
  uint8_t channelConfiguration = 0;  // 1 to 7
};

// Reads the first two bytes of an AudioSpecificConfig. None for what ADTS
// cannot carry: object types beyond 4, an explicit sample rate, a channel
// configuration of 0 (given by a program element).
std::optional<AacConfig> parseAudioSpecificConfig(std::span<const uint8_t> config);

// The 7-byte ADTS header (no CRC) in front of a raw frame of `frameSize`
// bytes. None when the whole does not fit the 13-bit length.
std::optional<std::array<uint8_t, 7>> adtsHeader(const AacConfig& config, size_t frameSize);

// Cuts tables and PES packets into transport packets and hands them on in
// order: the tables before the first packet and again before each key
// frame, the clock (PCR) on the video PID at the start of every access unit,
// a little before its DTS, stuffing in the adaptation field of each PES's
// last packet. Single-threaded.
class Writer {
 public:
  using Output = std::function<void(std::span<const uint8_t> packets)>;

  Writer(uint8_t videoStreamType, bool audio, Output output);

  // One access unit in Annex B form. `pts` and `dts` at 90 kHz; the DTS is
  // written only when it differs.
  void writeVideo(uint64_t pts, uint64_t dts, bool key, std::span<const uint8_t> annexB);
  // One ADTS frame, header included.
  void writeAudio(uint64_t pts, std::span<const uint8_t> adtsFrame);

 private:
  void writeTables();
  void writeSection(uint16_t pid, const std::vector<uint8_t>& section);
  // The PES cut into packets; `pcr` goes into the first one.
  void writePes(uint16_t pid, std::span<const uint8_t> pes, std::optional<uint64_t> pcr,
                bool randomAccess);
  uint8_t nextCounter(uint16_t pid);

  uint8_t videoStreamType_;
  bool audio_;
  Output output_;
  std::array<uint8_t, 3> counters_{};  // PMT, video, audio; PAT in patCounter_
  uint8_t patCounter_ = 0;
  bool tablesWritten_ = false;
  std::vector<uint8_t> buffer_;
};

}  // namespace oxelo::host::ts
