#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "encoding/AacConverter.h"
#include "media/LFAudioEncoding.h"
#include "media/LFLiveAudioConfiguration.h"

namespace oxelo {

// Turns the microphone's 16-bit interleaved PCM into raw AAC LC frames, one
// LFAudioFrame for each 1024 samples. PCM arrives in blocks of any size and
// is regrouped into blocks of exactly bufferLength bytes; all blocks
// completed by one call carry that call's timestamp. Every frame carries the
// configuration's two `asc` bytes as audioInfo.
//
// The converter is created with the first PCM, not with the encoder. All
// failures are silent: a converter that cannot be created is tried again on
// the next call, and the PCM of the failed calls is lost (what was held
// back before stays); a block that fails to encode gives no frame.
//
// Threads: encodeAudioData() and the delegate call run on the audio render
// thread, synchronously; setDelegate() may come from any thread.
class LFHardwareAudioEncoder final : public LFAudioEncoding {
 public:
  // `converterFactory` none: libavcodec's AAC encoder.
  explicit LFHardwareAudioEncoder(std::shared_ptr<LFLiveAudioConfiguration> configuration,
                                  AacConverterFactory converterFactory = {});

  void encodeAudioData(const Bytes& data, uint64_t timeStamp) override;
  void setDelegate(std::weak_ptr<LFAudioEncodingDelegate> delegate) override;
  // Does nothing: the converter stays, and the PCM held back is neither
  // encoded nor dropped, so a further call continues from it.
  void stopEncoder() override {}

  // PCM bytes held back, always below bufferLength. Audio render thread.
  int64_t leftLength() const { return leftLength_; }
  bool hasConverter() const { return converter_ != nullptr; }

 private:
  bool createAudioConvert();
  void encodeBuffer(const uint8_t* block, uint64_t timeStamp);

  const std::shared_ptr<LFLiveAudioConfiguration> configuration_;
  const AacConverterFactory converterFactory_;
  const size_t bufferLength_;
  const std::shared_ptr<const Bytes> audioInfo_;
  std::unique_ptr<AacConverter> converter_;
  std::vector<uint8_t> leftBuf_;  // bufferLength_ bytes
  std::vector<uint8_t> aacBuf_;   // one packet
  int64_t leftLength_ = 0;

  mutable std::mutex delegateMutex_;
  std::weak_ptr<LFAudioEncodingDelegate> aacDeleage_;  // delegateMutex_
};

}  // namespace oxelo
