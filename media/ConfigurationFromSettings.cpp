#include "media/ConfigurationFromSettings.h"

#include <algorithm>

#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"

namespace oxelo {

namespace {
uint64_t modulo3(long long value) { return static_cast<uint64_t>(((value % 3) + 3) % 3); }
}  // namespace

LiveSessionConfiguration configurationFromSettings(int64_t statusBarOrientation) {
  auto defaults = UserDefaults::standard();
  auto preset = static_cast<LFLiveVideoSessionPreset>(defaults->integerForKey(keys::videoSize));
  long long fps = std::max(15LL, defaults->integerForKey(keys::videoFPS));
  uint64_t quality = modulo3(defaults->integerForKey(keys::videoQuality));
  int64_t orientation = 3;
  if (defaults->boolForKey(keys::videoPortrait)) {
    orientation = 1;
  } else if (statusBarOrientation == 3 || statusBarOrientation == 4) {
    orientation = statusBarOrientation;
  }

  LiveSessionConfiguration c;
  c.video = LFLiveVideoConfiguration::defaultConfigurationForQualityPresetFPSOutputImageOrientation(
      quality, preset, fps, orientation);
  VideoSize size = c.video->videoSize();
  defaults->setInteger(keys::videoWidth, static_cast<long long>(std::max(size.width, size.height)));
  defaults->setInteger(keys::videoHeight,
                       static_cast<long long>(std::min(size.width, size.height)));
  defaults->synchronize();
  c.video->setAutorotate(true);

  c.audio = LFLiveAudioConfiguration::defaultConfigurationForQuality(
      modulo3(defaults->integerForKey(keys::audioQuality)));
  c.captureType = defaults->integerForKey(keys::audioFormat) < 1 ? 2 : 3;
  return c;
}

}  // namespace oxelo
