#include "encoding/HardwareEncoderFactory.h"

#include "encoding/LFHardwareAudioEncoder.h"
#include "encoding/LFHardwareVideoEncoder.h"

namespace oxelo {

std::shared_ptr<LFVideoEncoding> HardwareEncoderFactory::makeVideoEncoder(
    std::shared_ptr<LFLiveVideoConfiguration> videoConfiguration) {
  return LFHardwareVideoEncoder::create(std::move(videoConfiguration));
}

std::shared_ptr<LFAudioEncoding> HardwareEncoderFactory::makeAudioEncoder(
    std::shared_ptr<LFLiveAudioConfiguration> audioConfiguration) {
  return std::make_shared<LFHardwareAudioEncoder>(std::move(audioConfiguration));
}

}  // namespace oxelo
