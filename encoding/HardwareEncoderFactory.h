#pragma once

#include "media/LFVideoEncoding.h"

namespace oxelo {

// The encoders of this program: LFHardwareVideoEncoder on libavcodec with the
// default encoder order, following the shared application life cycle, and
// LFHardwareAudioEncoder on libavcodec's AAC encoder. The shell hands one to
// the live session.
class HardwareEncoderFactory final : public EncoderFactory {
 public:
  std::shared_ptr<LFVideoEncoding> makeVideoEncoder(
      std::shared_ptr<LFLiveVideoConfiguration> videoConfiguration) override;
  std::shared_ptr<LFAudioEncoding> makeAudioEncoder(
      std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration) override;
};

}  // namespace oxelo
