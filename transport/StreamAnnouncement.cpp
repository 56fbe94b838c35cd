#include "transport/StreamAnnouncement.h"

#include "media/LFLiveAudioConfiguration.h"
#include "media/LFLiveVideoConfiguration.h"
#include "media/VideoSizeCatalogue.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/device/DeviceName.h"

namespace oxelo {

wire::InfoPacketFields infoPacketFields(const LFLiveStreamInfo& stream, bool hevcDecodeSupported) {
  wire::InfoPacketFields f;
  if (const auto& video = stream.videoConfiguration) {
    auto size = video->videoSize();
    f.width = static_cast<uint32_t>(size.width);
    f.height = static_cast<uint32_t>(size.height);
    f.frameRate = static_cast<uint32_t>(video->videoFrameRate());
    f.videoBitRate = static_cast<uint32_t>(video->videoBitRate());
  }
  auto defaults = UserDefaults::standard();
  f.videoEncoder = static_cast<uint32_t>(defaults->integerForKey(keys::videoEncoder));
  f.hasAudio = defaults->integerForKey(keys::audioFormat) >= 1;
  if (const auto& audio = stream.audioConfiguration) {
    f.audioSampleRate = static_cast<uint32_t>(audio->audioSampleRate());
    f.audioChannels = static_cast<uint32_t>(audio->numberOfChannels());
    f.audioBitRate = static_cast<uint32_t>(audio->audioBitrate());
  }
  f.deviceName = wire::utf16FromUtf8(deviceName());
  auto& catalogue = VideoSizeCatalogue::shared();
  for (const auto& entry : catalogue.videoSizes())
    f.videoSizes.push_back({entry.width, entry.height, entry.fps});
  f.videoFrameRates = catalogue.videoFrameRates();
  f.hevcDecodeSupported = hevcDecodeSupported;
  return f;
}

}  // namespace oxelo
