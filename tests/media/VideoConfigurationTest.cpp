#include <gtest/gtest.h>

#include "media/LFLiveVideoConfiguration.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/support/CameraTestSupport.h"

namespace oxelo {
namespace {

using nlohmann::json;

std::shared_ptr<LFLiveVideoConfiguration> build(uint64_t quality, uint64_t preset, int64_t fps,
                                                int64_t orientation = 3) {
  return LFLiveVideoConfiguration::defaultConfigurationForQualityPresetFPSOutputImageOrientation(
      quality, preset, fps, orientation);
}

struct RateCase {
  const char* name;
  uint64_t preset, quality;
  int64_t fps;
  int encoder;
  uint64_t bitRate;  // the minimum is a fifth of it, the maximum 6/5
};

class VideoBitRateTest : public testing::TestWithParam<RateCase> {};

// On a camera that takes every preset.
TEST_P(VideoBitRateTest, FollowsSizeQualityCodecAndFrameRate) {
  test::CameraAndSettings env(test::defaultVirtualCameraSystem());
  const auto& c = GetParam();
  env.defaults().setInteger(keys::videoEncoder, c.encoder);
  auto v = build(c.quality, c.preset, c.fps);
  EXPECT_EQ(v->sessionPreset(), c.preset);
  EXPECT_EQ(v->videoBitRate(), c.bitRate);
  EXPECT_EQ(v->videoMinBitRate(), c.bitRate / 5);
  EXPECT_EQ(v->videoMaxBitRate(), c.bitRate * 6 / 5);
  // The frame rates and the key frame interval follow the rate.
  EXPECT_EQ(v->videoFrameRate(), uint64_t(c.fps));
  EXPECT_EQ(v->videoMaxFrameRate(), uint64_t(c.fps));
  EXPECT_EQ(v->videoMinFrameRate(), uint64_t(c.fps / 2));
  EXPECT_EQ(v->videoMaxKeyframeInterval(), uint64_t(c.fps));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, VideoBitRateTest,
    testing::Values(
        // H.264 at 25: each branch of the size rule, each quality factor once.
        RateCase{"Preset0Quality0", 0, 0, 25, 0, 460800},    // 640x360, below 1920
        RateCase{"Preset1Quality2", 1, 2, 25, 0, 3072000},   // 640x480
        RateCase{"Preset4Quality1", 4, 1, 25, 0, 4608000},   // 1280x720
        RateCase{"Preset6Quality0", 6, 0, 25, 0, 2073600},   // 1920 long: halved
        RateCase{"Preset5Quality2", 5, 2, 25, 0, 12288000},  // up to 2560: a third
        RateCase{"Preset8Quality1", 8, 1, 25, 0, 10368000},  // beyond 2560: a quarter
        RateCase{"Preset7At30", 7, 2, 30, 0, 14745600},      // 12288000 x 30 / 25
        RateCase{"Preset6HevcAt30", 6, 1, 30, 1, 3732480},   // 5184000 x 0.6 x 30 / 25
        RateCase{"Preset4HevcAt25", 4, 1, 25, 1, 2764800},   // 4608000 x 0.6
        RateCase{"Preset1At60", 1, 1, 60, 0, 3686400},       // 1536000 x 60 / 25
        RateCase{"Preset0At15", 0, 0, 15, 0, 276480},        // 460800 x 15 / 25
        RateCase{"EncoderTwoIsNotHevc", 4, 1, 25, 2, 4608000},
        RateCase{"QualityThreeLeavesZero", 4, 3, 25, 0, 0}),
    [](const auto& info) { return std::string(info.param.name); });

struct SizeCase {
  const char* name;
  uint64_t preset;
  int64_t orientation;
  VideoSize size;
  bool landscape;
};

class VideoSizeOrientationTest : public testing::TestWithParam<SizeCase> {};

TEST_P(VideoSizeOrientationTest, LandscapeTurnsTheSizeButNotTheRate) {
  test::CameraAndSettings env(test::defaultVirtualCameraSystem());
  const auto& c = GetParam();
  auto v = build(1, c.preset, 25, c.orientation);
  EXPECT_EQ(v->videoSize(), c.size);
  EXPECT_EQ(v->captureOutVideoSize(), c.size);
  EXPECT_EQ(v->landscape(), c.landscape);
  EXPECT_EQ(v->outputImageOrientation(), c.orientation);
  EXPECT_EQ(v->videoBitRate(), build(1, c.preset, 25, 3)->videoBitRate());
}

INSTANTIATE_TEST_SUITE_P(Orientations, VideoSizeOrientationTest,
                         testing::Values(SizeCase{"LandscapeRight", 4, 3, {1280, 720}, true},
                                         SizeCase{"LandscapeLeft", 4, 4, {1280, 720}, true},
                                         SizeCase{"Portrait", 4, 1, {720, 1280}, false},
                                         SizeCase{"UpsideDown", 4, 2, {720, 1280}, false},
                                         SizeCase{"LandscapePreset3", 3, 3, {800, 600}, true},
                                         SizeCase{"PortraitPreset6", 6, 1, {1080, 1920}, false},
                                         SizeCase{"BeyondTableIsPreset1", 11, 3, {640, 480}, true}),
                         [](const auto& info) { return std::string(info.param.name); });

// A bound that would break min <= rate <= max is refused; one equal to the
// rate is taken; moving the rate later does not move the bounds.
TEST(VideoConfigurationTest, SettersKeepTheOrderOfRateAndBounds) {
  LFLiveVideoConfiguration v;
  v.setVideoBitRate(1000);
  v.setVideoMaxBitRate(1200);
  v.setVideoMinBitRate(200);
  v.setVideoFrameRate(30);
  v.setVideoMaxFrameRate(30);
  v.setVideoMinFrameRate(15);
  v.setVideoMaxBitRate(999);
  v.setVideoMinBitRate(1001);
  v.setVideoMaxFrameRate(29);
  v.setVideoMinFrameRate(31);
  EXPECT_EQ(v.videoMaxBitRate(), 1200u);
  EXPECT_EQ(v.videoMinBitRate(), 200u);
  EXPECT_EQ(v.videoMaxFrameRate(), 30u);
  EXPECT_EQ(v.videoMinFrameRate(), 15u);
  v.setVideoMaxBitRate(1000);
  v.setVideoMinBitRate(1000);
  EXPECT_EQ(v.videoMaxBitRate(), 1000u);
  EXPECT_EQ(v.videoMinBitRate(), 1000u);
  v.setVideoBitRate(5000);
  EXPECT_EQ(v.videoMaxBitRate(), 1000u);
}

// Presets fall back to what the back camera takes.
struct FallbackCase {
  const char* name;
  json cameras;
  long long backCameraType;
  uint64_t asked, settled;
};

json camerasWith(std::initializer_list<json> cameras) { return {{"cameras", cameras}}; }
json back(std::initializer_list<std::pair<std::pair<int, int>, double>> formats,
          const char* type = "wide") {
  return test::cameraJson(type, "back", formats);
}
const json kAllButFourK = camerasWith(
    {back({{{640, 480}, 30}, {{960, 540}, 30}, {{1280, 720}, 60}, {{1920, 1080}, 60}})});
const json kTwoSizes = camerasWith({back({{{640, 480}, 30}, {{1280, 720}, 30}})});

class VideoPresetFallbackTest : public testing::TestWithParam<FallbackCase> {};

TEST_P(VideoPresetFallbackTest, SettlesOnTheLargestPresetTheBackCameraTakes) {
  const auto& c = GetParam();
  test::CameraAndSettings env(test::camerasFromJson(c.cameras));
  env.defaults().setInteger(keys::backCameraType, c.backCameraType);
  auto v = build(2, c.asked, 25, 1);
  EXPECT_EQ(v->sessionPreset(), c.settled);
  // The record carries the size of the preset it settled on.
  EXPECT_EQ(v->videoSize(), portraitSizeOfPreset(c.settled));
  EXPECT_EQ(v->avSessionPreset(), capturePresetOfPreset(c.settled));
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, VideoPresetFallbackTest,
    testing::Values(
        // 8 and 7 share the refused 3840x2160: 6 is the first accepted.
        FallbackCase{"NoFourKGoesFrom8To6", kAllButFourK, 0, 8, 6},
        FallbackCase{"NoFourKGoesFrom7To6", kAllButFourK, 0, 7, 6},
        FallbackCase{"SupportedPresetStays", kAllButFourK, 0, 5, 5},
        FallbackCase{"OnlyTwoSizes", kTwoSizes, 0, 6, 4},
        FallbackCase{"OnlyTwoSizesSkips960", kTwoSizes, 0, 2, 1},
        FallbackCase{"NoCameraGivesZero", camerasWith({}), 0, 6, 0},
        FallbackCase{"OnlyAFrontCameraGivesZero",
                     camerasWith({test::cameraJson("wide", "front", {{{1920, 1080}, 30}})}), 0, 6,
                     0},
        // The chosen type stands ahead of the wide-angle camera.
        FallbackCase{"DualCameraAsked",
                     camerasWith({back({{{3840, 2160}, 30}}), back({{{1280, 720}, 30}}, "dual")}),
                     1, 8, 4},
        // Without it, the wide-angle camera answers.
        FallbackCase{"MissingTripleFallsToWide", camerasWith({back({{{3840, 2160}, 30}})}), 3, 8,
                     8},
        // Type 4 names no camera: the wide-angle camera alone.
        FallbackCase{
            "UnknownTypeIsWide",
            camerasWith({back({{{1920, 1080}, 30}}), back({{{3840, 2160}, 30}}, "triple")}), 4, 8,
            6}),
    [](const auto& info) { return std::string(info.param.name); });

// The fallback also gives the bit rate of the lower size, and setting a
// preset later probes it the same way.
TEST(VideoConfigurationTest, ThePresetFallbackSetsTheBitRateOfTheLowerSizeAndSettersProbe) {
  test::CameraAndSettings env(test::camerasFromJson(kAllButFourK));
  auto v = build(1, 8, 25, 3);
  EXPECT_EQ(v->sessionPreset(), 6u);
  EXPECT_EQ(v->videoSize(), (VideoSize{1920, 1080}));
  EXPECT_EQ(v->videoBitRate(), 5184000u);
  LFLiveVideoConfiguration fresh;
  fresh.setSessionPreset(8);
  EXPECT_EQ(fresh.sessionPreset(), 6u);
  EXPECT_EQ(fresh.supportSessionPreset(3), 3u);
}

struct AspectCase {
  const char* name;
  uint64_t preset;
  int64_t orientation;
  VideoSize stored, expected;
};

class VideoAspectRatioTest : public testing::TestWithParam<AspectCase> {};

TEST_P(VideoAspectRatioTest, FitsTheCaptureProportionsIntoTheStoredSize) {
  test::CameraAndSettings env(test::defaultVirtualCameraSystem());
  const auto& c = GetParam();
  auto v = build(1, c.preset, 25, c.orientation);
  v->setVideoSize(c.stored);
  EXPECT_EQ(v->aspectRatioVideoSize(), c.expected);
  EXPECT_EQ(v->videoSize(), c.stored);
  v->setVideoSizeRespectingAspectRatio(true);
  EXPECT_EQ(v->videoSize(), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, VideoAspectRatioTest,
    // 1280x720 into 1000x1000 is 1000 x 562.5: up to 563, even 562;
    // 640x480 into 333x333 is 333 x 249.75: 333 x 250, even 332 x 250.
    testing::Values(AspectCase{"WideIntoSquare", 4, 3, {1000, 1000}, {1000, 562}},
                    AspectCase{"TallIntoSquare", 4, 1, {1000, 1000}, {562, 1000}},
                    AspectCase{"SameProportions", 6, 3, {1920, 1080}, {1920, 1080}},
                    AspectCase{"FourByThreeIntoWide", 3, 3, {1279, 720}, {960, 720}},
                    AspectCase{"OddSidesBecomeEven", 1, 3, {333, 333}, {332, 250}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
