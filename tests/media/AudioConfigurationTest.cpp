#include <gtest/gtest.h>

#include "media/LFLiveAudioConfiguration.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/support/CameraTestSupport.h"

namespace oxelo {
namespace {

struct AscCase {
  const char* name;
  uint64_t sampleRate, channels;
  uint8_t byte0, byte1;
};

class AudioAscTest : public testing::TestWithParam<AscCase> {};

TEST_P(AudioAscTest, WritesTheTwoBytes) {
  const auto& c = GetParam();
  for (bool channelsLast : {false, true}) {  // the same bytes whichever is set last
    LFLiveAudioConfiguration a;
    if (channelsLast) a.setAudioSampleRate(c.sampleRate);
    a.setNumberOfChannels(c.channels);
    if (!channelsLast) a.setAudioSampleRate(c.sampleRate);
    EXPECT_EQ(a.asc()[0], c.byte0) << channelsLast;
    EXPECT_EQ(a.asc()[1], c.byte1) << channelsLast;
  }
}

INSTANTIATE_TEST_SUITE_P(Rates, AudioAscTest,
                         testing::Values(AscCase{"Stereo48000", 48000, 2, 0x11, 0x90},
                                         // index 12: 0x10 | 6, (12 << 7) & 0xff = 0, 1 << 3
                                         AscCase{"Mono7350", 7350, 1, 0x16, 0x08},
                                         // unknown rate: index 15 -> 0x17, 0x80 | 2 << 3
                                         AscCase{"UnknownRate", 50000, 2, 0x17, 0x90}),
                         [](const auto& info) { return std::string(info.param.name); });

struct QualityCase {
  const char* name;
  uint64_t quality;
  long long audioFormat;
  uint64_t channels, sampleRate, bitrate, bufferLength;
};

class AudioQualityTest : public testing::TestWithParam<QualityCase> {};

TEST_P(AudioQualityTest, FillsFromTheTable) {
  test::CameraAndSettings env(
      std::make_shared<CameraSystem>("none", std::vector<std::shared_ptr<CaptureDevice>>{}));
  const auto& c = GetParam();
  env.defaults().setInteger(keys::audioFormat, c.audioFormat);
  auto a = LFLiveAudioConfiguration::defaultConfigurationForQuality(c.quality);
  EXPECT_EQ(a->numberOfChannels(), c.channels);
  EXPECT_EQ(a->audioSampleRate(), c.sampleRate);
  EXPECT_EQ(a->audioBitrate(), c.bitrate);
  EXPECT_EQ(a->bufferLength(), c.bufferLength);
}

INSTANTIATE_TEST_SUITE_P(
    Qualities, AudioQualityTest,
    testing::Values(QualityCase{"LowMono", 0, 1, 1, 16000, 32000, 2048},
                    QualityCase{"MediumStereo", 1, 2, 2, 44100, 96000, 4096},
                    QualityCase{"HighStereo", 2, 2, 2, 48000, 128000, 4096},
                    // No audio still gives a stereo record.
                    QualityCase{"FormatNoneIsStereo", 1, 0, 2, 44100, 96000, 4096},
                    QualityCase{"OtherQualitySetsChannelsOnly", 7, 1, 1, 0, 0, 2048}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
