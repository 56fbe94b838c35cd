#include "media/LFLiveAudioConfiguration.h"

#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"

namespace oxelo {

std::shared_ptr<LFLiveAudioConfiguration> LFLiveAudioConfiguration::defaultConfiguration() {
  return defaultConfigurationForQuality(2);
}

std::shared_ptr<LFLiveAudioConfiguration> LFLiveAudioConfiguration::defaultConfigurationForQuality(
    uint64_t quality) {
  struct Row {
    uint64_t sampleRate, stereoBitrate, monoBitrate;
  };
  static constexpr Row kRows[] = {
      {16000, 64000, 32000}, {44100, 96000, 64000}, {48000, 128000, 96000}};
  auto defaults = UserDefaults::standard();
  bool mono = defaults && defaults->integerForKey(keys::audioFormat) == 1;
  auto c = std::make_shared<LFLiveAudioConfiguration>();
  c->setNumberOfChannels(mono ? 1 : 2);
  if (quality > 2) return c;
  const Row& row = kRows[quality];
  c->setAudioBitrate(mono ? row.monoBitrate : row.stereoBitrate);
  c->setAudioSampleRate(row.sampleRate);
  return c;
}

void LFLiveAudioConfiguration::setNumberOfChannels(uint64_t channels) {
  numberOfChannels_ = channels;
  writeAsc();
}

void LFLiveAudioConfiguration::setAudioSampleRate(uint64_t sampleRate) {
  audioSampleRate_ = sampleRate;
  writeAsc();
}

uint8_t LFLiveAudioConfiguration::sampleRateIndex(uint64_t sampleRate) {
  static constexpr uint64_t kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                        22050, 16000, 12000, 11025, 8000,  7350};
  for (uint8_t i = 0; i < sizeof(kRates) / sizeof(kRates[0]); ++i) {
    if (kRates[i] == sampleRate) return i;
  }
  return 15;
}

void LFLiveAudioConfiguration::writeAsc() {
  uint8_t index = sampleRateIndex(audioSampleRate_);
  asc_[0] = static_cast<uint8_t>(0x10 | ((index >> 1) & 0x7));
  asc_[1] = static_cast<uint8_t>(((index << 7) & 0xff) | ((numberOfChannels_ & 0xf) << 3));
}

}  // namespace oxelo
