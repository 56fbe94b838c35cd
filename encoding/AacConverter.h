#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "media/LFLiveAudioConfiguration.h"

namespace oxelo {

// The AAC converter behind LFHardwareAudioEncoder: one block of 1024 samples
// of 16-bit interleaved PCM (bufferLength bytes) in, one raw AAC LC packet
// (no ADTS header) out. Not thread-safe; used on the audio render thread.
class AacConverter {
 public:
  virtual ~AacConverter() = default;
  // Returns 0 and one packet in `packet`, or the codec's error.
  virtual int encodeBlock(const uint8_t* pcm, std::vector<uint8_t>& packet) = 0;
};

// None when the converter cannot be created for this configuration.
using AacConverterFactory =
    std::function<std::unique_ptr<AacConverter>(const LFLiveAudioConfiguration& configuration)>;

// libavcodec's native AAC encoder at the configuration's rate, channels and
// bit rate. The codec holds one packet back (its look-ahead), so the
// converter primes it with one block of silence when it is created: from
// then on every block gives exactly one packet, and the stream begins with
// 1024 samples of silence. None, silently, when the codec does not open.
std::unique_ptr<AacConverter> makeLibavAacConverter(const LFLiveAudioConfiguration& configuration);

// Turns 16-bit interleaved samples into planar floats in [-1, 1):
// `frames` frames of `channels` samples from `pcm` into one array per channel.
void deinterleaveToFloat(const int16_t* pcm, size_t frames, size_t channels, float* const* planes);

}  // namespace oxelo
