#include <gtest/gtest.h>

#include "media/ConfigurationFromSettings.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/support/CameraTestSupport.h"

namespace oxelo {
namespace {

class ConfigurationFromSettingsTest : public testing::Test {
 protected:
  ConfigurationFromSettingsTest() : env_(test::defaultVirtualCameraSystem()) {
    // The defaults the application registers, for the keys read here.
    env_.defaults().registerDefaults(nlohmann::json::parse(R"({"videoPortrait": false,
        "videoSize": 4, "videoWidth": 1280, "videoHeight": 720, "videoFPS": 30, "videoQuality": 1,
        "videoEncoder": 0, "audioFormat": 1, "audioQuality": 1, "backCameraType": 0})"));
  }
  UserDefaults& defaults() { return env_.defaults(); }
  test::CameraAndSettings env_;
};

TEST_F(ConfigurationFromSettingsTest, TheDefaultsGiveLandscape720pAt30) {
  auto c = configurationFromSettings(/*statusBarOrientation=*/1);
  EXPECT_EQ(c.video->sessionPreset(), 4u);
  EXPECT_EQ(c.video->outputImageOrientation(), 3);
  EXPECT_EQ(c.video->videoSize(), (VideoSize{1280, 720}));
  EXPECT_EQ(c.video->videoFrameRate(), 30u);
  EXPECT_EQ(c.video->videoBitRate(), 5529600u);  // 4608000 x 30 / 25
  EXPECT_TRUE(c.video->autorotate());
  EXPECT_EQ(c.audio->numberOfChannels(), 1u);
  EXPECT_EQ(c.audio->audioSampleRate(), 44100u);
  EXPECT_EQ(c.captureType, 3u);
}

TEST_F(ConfigurationFromSettingsTest, ALowFrameRateIsRaisedTo15) {
  defaults().setInteger(keys::videoFPS, 10);
  auto c = configurationFromSettings(3);
  EXPECT_EQ(c.video->videoFrameRate(), 15u);
}

struct OrientationCase {
  const char* name;
  bool portrait;
  int64_t statusBar, expected;
};

class SettingsOrientationTest : public ConfigurationFromSettingsTest,
                                public testing::WithParamInterface<OrientationCase> {};

TEST_P(SettingsOrientationTest, PortraitSettingThenStatusBarThenLandscapeRight) {
  defaults().setBool(keys::videoPortrait, GetParam().portrait);
  auto c = configurationFromSettings(GetParam().statusBar);
  EXPECT_EQ(c.video->outputImageOrientation(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Orientations, SettingsOrientationTest,
                         testing::Values(OrientationCase{"PortraitSetting", true, 4, 1},
                                         OrientationCase{"StatusBarLeft", false, 4, 4},
                                         OrientationCase{"StatusBarRight", false, 3, 3},
                                         OrientationCase{"StatusBarPortrait", false, 1, 3},
                                         OrientationCase{"StatusBarUnknown", false, 0, 3}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ConfigurationFromSettingsTest, StoresTheSettledSizeLongSideFirstAndDurably) {
  // A camera without 1280x720: preset 4 settles on 2, 960x540.
  CameraSystem::setCurrent(test::camerasFromJson(
      {{"cameras", {test::cameraJson("wide", "back", {{{640, 480}, 30}, {{960, 540}, 30}})}}}));
  defaults().setBool(keys::videoPortrait, true);
  auto c = configurationFromSettings(3);
  EXPECT_EQ(c.video->sessionPreset(), 2u);
  EXPECT_EQ(c.video->videoSize(), (VideoSize{540, 960}));
  UserDefaults reread(env_.directory());
  EXPECT_EQ(reread.integerForKey(keys::videoWidth), 960);
  EXPECT_EQ(reread.integerForKey(keys::videoHeight), 540);
}

TEST_F(ConfigurationFromSettingsTest, QualitiesAreTakenModuloThree) {
  defaults().setInteger(keys::videoQuality, 5);  // 2
  defaults().setInteger(keys::audioQuality, 3);  // 0
  auto c = configurationFromSettings(3);
  EXPECT_EQ(c.video->videoBitRate(), 11059200u);  // 9216000 x 30 / 25
  EXPECT_EQ(c.audio->audioSampleRate(), 16000u);
}

TEST_F(ConfigurationFromSettingsTest, NoAudioCapturesVideoOnlyWithAStereoRecord) {
  defaults().setInteger(keys::audioFormat, 0);
  auto c = configurationFromSettings(3);
  EXPECT_EQ(c.captureType, 2u);
  EXPECT_EQ(c.audio->numberOfChannels(), 2u);
}

}  // namespace
}  // namespace oxelo
