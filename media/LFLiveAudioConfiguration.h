#pragma once

#include <array>
#include <cstdint>
#include <memory>

namespace oxelo {

// Every number of the audio side of a live session, with the AAC
// AudioSpecificConfig (`asc`) that the stream's audio header carries. Built
// once on the main queue from the settings before capture starts; the audio
// capture, the AAC encoder and the stream socket read it. No lock.
class LFLiveAudioConfiguration {
 public:
  // Quality 2.
  static std::shared_ptr<LFLiveAudioConfiguration> defaultConfiguration();
  // Reads the setting `audioFormat` (1 mono, every other value stereo) and
  // sets the channels, the bit rate and the sample rate, in this order:
  //   quality 0: 16000 Hz, 64000 b/s stereo, 32000 mono
  //   quality 1: 44100 Hz, 96000 b/s stereo, 64000 mono
  //   quality 2: 48000 Hz, 128000 b/s stereo, 96000 mono
  // Another quality sets the channels only.
  static std::shared_ptr<LFLiveAudioConfiguration> defaultConfigurationForQuality(uint64_t quality);

  uint64_t numberOfChannels() const { return numberOfChannels_; }
  // Also rewrites asc().
  void setNumberOfChannels(uint64_t channels);
  uint64_t audioSampleRate() const { return audioSampleRate_; }
  // Also rewrites asc().
  void setAudioSampleRate(uint64_t sampleRate);
  uint64_t audioBitrate() const { return audioBitrate_; }
  void setAudioBitrate(uint64_t bitrate) { audioBitrate_ = bitrate; }

  // The two bytes of the AudioSpecificConfig: AAC LC, the rate's index and
  // the channel count. A bare buffer of exactly two bytes, not text.
  const uint8_t* asc() const { return asc_.data(); }
  static constexpr size_t kAscLength = 2;

  // Bytes of 16-bit PCM that make one AAC packet: 1024 samples per channel.
  uint64_t bufferLength() const { return numberOfChannels_ << 11; }

  // The index of a rate in the MPEG-4 sampling frequency table (96000 -> 0
  // ... 7350 -> 12); 15 for any other rate.
  static uint8_t sampleRateIndex(uint64_t sampleRate);

 private:
  void writeAsc();

  uint64_t numberOfChannels_ = 0;
  uint64_t audioSampleRate_ = 0;
  uint64_t audioBitrate_ = 0;
  std::array<uint8_t, kAscLength> asc_{};
};

}  // namespace oxelo
