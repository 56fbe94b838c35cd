#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "platform/camera/CaptureDevice.h"
#include "platform/camera/WhiteBalanceModel.h"
#include "tests/support/CameraTestSupport.h"

namespace oxelo {
namespace {

using nlohmann::json;

// A back camera with two sizes, the second with HDR and a lower zoom limit.
std::shared_ptr<CaptureDevice> twoFormatCamera(const json& controls = nullptr) {
  json camera = json::parse(R"({"type":"wide","position":"back","formats":[
      {"width":1280,"height":720,"fps":[[1,30],[60,60]],"iso":[50,1600],"exposure":[0.0001,0.25],
       "maxZoom":10},
      {"width":1920,"height":1080,"fps":30,"maxZoom":3,"hdr":true}]})");
  if (!controls.is_null()) camera["controls"] = controls;
  auto system = test::camerasFromJson({{"cameras", {camera}}});
  return system->devices().empty() ? nullptr : system->devices().front();
}

TEST(CameraDeviceTest, ChangesNeedTheConfigurationLockAndItCounts) {
  auto d = twoFormatCamera();
  ASSERT_TRUE(d);
  EXPECT_FALSE(d->isLockedForConfiguration());
  EXPECT_FALSE(d->setVideoZoomFactor(2.0));
  EXPECT_DOUBLE_EQ(d->videoZoomFactor(), 1.0);

  ASSERT_TRUE(d->lockForConfiguration());
  ASSERT_TRUE(d->lockForConfiguration());  // nested
  EXPECT_TRUE(d->setVideoZoomFactor(2.0));
  d->unlockForConfiguration();
  EXPECT_TRUE(d->isLockedForConfiguration());
  EXPECT_TRUE(d->setFocusMode(AVCaptureFocusModeLocked));
  d->unlockForConfiguration();
  EXPECT_FALSE(d->isLockedForConfiguration());
  d->unlockForConfiguration();  // one too many does no harm
  EXPECT_FALSE(d->setVideoZoomFactor(3.0));
  EXPECT_DOUBLE_EQ(d->videoZoomFactor(), 2.0);
  EXPECT_EQ(d->focusMode(), AVCaptureFocusModeLocked);
}

TEST(CameraDeviceTest, AFailedLockGivesItsReasonAndRefusesChanges) {
  json camera = test::cameraJson("wide", "back", {{{1280, 720}, 30}});
  camera["lockError"] = "in use by another client";
  auto d = test::camerasFromJson({{"cameras", {camera}}})->devices().front();
  std::string error;
  EXPECT_FALSE(d->lockForConfiguration(&error));
  EXPECT_EQ(error, "in use by another client");
  EXPECT_FALSE(d->isLockedForConfiguration());
  EXPECT_FALSE(d->setExposureTargetBias(1.0f));
  EXPECT_FLOAT_EQ(d->exposureTargetBias(), 0.0f);
}

TEST(CameraDeviceTest, StartsInTheBestAutomaticModesOrLockedWithoutThem) {
  auto full = twoFormatCamera();
  EXPECT_EQ(full->focusMode(), AVCaptureFocusModeContinuousAutoFocus);
  EXPECT_EQ(full->exposureMode(), AVCaptureExposureModeContinuousAutoExposure);
  EXPECT_EQ(full->whiteBalanceMode(), AVCaptureWhiteBalanceModeContinuousAutoWhiteBalance);

  auto oneShot = twoFormatCamera({{"focusModes", {0, 1}}, {"exposureModes", {0}}});
  EXPECT_EQ(oneShot->focusMode(), AVCaptureFocusModeAutoFocus);
  EXPECT_EQ(oneShot->exposureMode(), AVCaptureExposureModeLocked);
  EXPECT_FALSE(oneShot->isExposureModeSupported(AVCaptureExposureModeCustom));
}

// Everything a refused change must leave as it was.
auto settings(const CaptureDevice& d) {
  auto s = d.state();
  return std::tuple(s.activeVideoMinFrameDuration, s.focusMode, s.focusPointOfInterest,
                    s.lensPosition, s.exposureMode, s.exposurePointOfInterest, s.exposureDuration,
                    s.ISO, s.exposureTargetBias, s.whiteBalanceMode, s.whiteBalanceGains,
                    s.videoZoomFactor, s.torchMode, s.torchLevel, s.videoHDREnabled);
}

struct Refusal {
  const char* name;
  json controls;
  std::function<bool(CaptureDevice&)> change;
};

class CameraRefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(CameraRefusalTest, RefusesAndKeepsEveryValue) {
  auto d = twoFormatCamera(GetParam().controls);
  ASSERT_TRUE(d);
  ASSERT_TRUE(d->lockForConfiguration());
  ASSERT_TRUE(d->setActiveFormat(d->formatForSessionPreset(AVCaptureSessionPreset1280x720)));
  const auto before = settings(*d);
  EXPECT_FALSE(GetParam().change(*d));
  EXPECT_EQ(settings(*d), before);
}

using D = CaptureDevice;
auto custom(CaptureTime duration, float iso) {
  return [=](D& d) { return d.setExposureModeCustomWithDurationISO(duration, iso); };
}
auto gains(float red, float green, float blue) {
  return [=](D& d) {
    return d.setWhiteBalanceModeLockedWithDeviceWhiteBalanceGains({red, green, blue});
  };
}
INSTANTIATE_TEST_SUITE_P(
    Changes, CameraRefusalTest,
    testing::Values(
        Refusal("ZoomBelowOne", {}, [](D& d) { return d.setVideoZoomFactor(0.99); }),
        Refusal("ZoomAboveTheFormatsLimit", {}, [](D& d) { return d.setVideoZoomFactor(10.5); }),
        Refusal("LensPositionAboveOne", {},
                [](D& d) { return d.setFocusModeLockedWithLensPosition(1.01f); }),
        Refusal("LensPositionWithoutTheFeature", {{"lensPosition", false}},
                [](D& d) { return d.setFocusModeLockedWithLensPosition(0.5f); }),
        Refusal("BiasBeyondTheLimit", {{"exposureBias", {-2, 2}}},
                [](D& d) { return d.setExposureTargetBias(2.5f); }),
        Refusal("ExposureBelowTheFormatsMinimum", {},
                custom(CaptureTime::make(5, 100000), AVCaptureISOCurrent)),
        Refusal("IsoAboveTheFormatsMaximum", {}, custom(AVCaptureExposureDurationCurrent, 1601)),
        Refusal("CustomExposureWithoutModeThree", {{"exposureModes", {0, 2}}},
                custom(CaptureTime::make(1, 100), 100)),
        Refusal("GainBelowOne", {}, gains(0.9f, 1, 1)),
        Refusal("GainAboveTheMaximum", {{"maxWhiteBalanceGain", 2}}, gains(1, 2.5f, 1)),
        Refusal("TorchLevelZero", {}, [](D& d) { return d.setTorchModeOnWithLevel(0.0f); }),
        Refusal("TorchLevelAboveOne", {}, [](D& d) { return d.setTorchModeOnWithLevel(1.2f); }),
        Refusal("TorchOnACameraWithout", {{"torch", false}},
                [](D& d) { return d.setTorchModeOnWithLevel(1.0f); }),
        Refusal("FocusPointWithoutTheFeature", {{"focusPointOfInterest", false}},
                [](D& d) {
                  return d.setFocusPointOfInterest({0.2, 0.3});
                }),
        Refusal("ExposurePointOutsideThePicture", {},
                [](D& d) {
                  return d.setExposurePointOfInterest({1.2, 0.3});
                }),
        Refusal("UnsupportedWhiteBalanceMode", {{"whiteBalanceModes", {0, 2}}},
                [](D& d) { return d.setWhiteBalanceMode(1); }),
        Refusal("HdrWhileTheDeviceAdjustsIt", {}, [](D& d) { return d.setVideoHDREnabled(true); }),
        Refusal("HdrOnAFormatWithout", {},
                [](D& d) {
                  d.setAutomaticallyAdjustsVideoHDREnabled(false);
                  return d.setVideoHDREnabled(true);  // the 1920x1080 format has it, 1280x720 not
                }),
        Refusal("FrameDurationOutsideTheRanges", {},
                [](D& d) { return d.setActiveVideoMinFrameDuration(CaptureTime::make(1, 45)); })),
    [](const auto& info) { return std::string(info.param.name); });

// Custom exposure keeps what is "current" and takes the rest; a ramp keeps
// its rate, a direct zoom clears it; the torch level reads zero when off; the
// invalid time returns the frames to the format's own timing.
TEST(CameraDeviceTest, AcceptedChangesTakeTheirValues) {
  auto d = twoFormatCamera();
  ASSERT_TRUE(d->lockForConfiguration());
  ASSERT_TRUE(d->setActiveFormat(d->formats()[1]));  // 1280x720 "420f"
  CaptureTime before = d->exposureDuration();
  ASSERT_TRUE(d->setExposureModeCustomWithDurationISO(AVCaptureExposureDurationCurrent, 400.0f));
  EXPECT_EQ(d->exposureMode(), AVCaptureExposureModeCustom);
  EXPECT_EQ(d->exposureDuration(), before);
  EXPECT_FLOAT_EQ(d->ISO(), 400.0f);
  ASSERT_TRUE(
      d->setExposureModeCustomWithDurationISO(CaptureTime::make(1, 4), AVCaptureISOCurrent));
  EXPECT_EQ(d->exposureDuration(), CaptureTime::make(1, 4));  // the maximum is allowed
  EXPECT_FLOAT_EQ(d->ISO(), 400.0f);
  EXPECT_EQ(d->activeMaxExposureDuration(), CaptureTime::make(1, 4));

  ASSERT_TRUE(d->rampToVideoZoomFactorWithRate(4.0, 5.0f));
  EXPECT_DOUBLE_EQ(d->videoZoomFactor(), 4.0);
  EXPECT_FLOAT_EQ(d->videoZoomRampRate(), 5.0f);
  ASSERT_TRUE(d->setVideoZoomFactor(2.0));
  EXPECT_FLOAT_EQ(d->videoZoomRampRate(), 0.0f);

  std::string error;
  ASSERT_TRUE(d->setTorchModeOnWithLevel(0.6f, &error)) << error;
  EXPECT_EQ(d->torchMode(), AVCaptureTorchModeOn);
  EXPECT_FLOAT_EQ(d->torchLevel(), 0.6f);
  ASSERT_TRUE(d->setTorchMode(AVCaptureTorchModeOff));
  EXPECT_FLOAT_EQ(d->torchLevel(), 0.0f);
  EXPECT_FALSE(d->setTorchMode(AVCaptureTorchModeAuto));

  ASSERT_TRUE(d->setActiveVideoMinFrameDuration(CaptureTime::make(1, 15)));
  EXPECT_EQ(d->activeVideoMinFrameDuration(), CaptureTime::make(1, 15));
  ASSERT_TRUE(d->setActiveVideoMinFrameDuration(CaptureTime::invalid()));
  EXPECT_EQ(d->activeVideoMinFrameDuration(), CaptureTime::make(1, 30));
}

TEST(CameraDeviceTest, AnotherActiveFormatResetsTheTimingAndBringsZoomWithinItsLimit) {
  auto d = twoFormatCamera();
  ASSERT_TRUE(d->lockForConfiguration());
  auto hd = d->formatForSessionPreset(AVCaptureSessionPreset1280x720);
  auto fullHd = d->formatForSessionPreset(AVCaptureSessionPreset1920x1080);
  ASSERT_TRUE(hd && fullHd);
  ASSERT_TRUE(d->setActiveFormat(hd));
  ASSERT_TRUE(d->setActiveVideoMinFrameDuration(CaptureTime::make(1, 60)));
  ASSERT_TRUE(d->setActiveVideoMaxFrameDuration(CaptureTime::make(1, 60)));
  ASSERT_TRUE(d->setVideoZoomFactor(8.0));

  ASSERT_TRUE(d->setActiveFormat(fullHd));
  EXPECT_EQ(d->activeFormat(), fullHd);
  EXPECT_EQ(d->activeVideoMinFrameDuration(), CaptureTime::make(1, 30));
  EXPECT_EQ(d->activeVideoMaxFrameDuration(), CaptureTime::make(1, 30));
  EXPECT_DOUBLE_EQ(d->videoZoomFactor(), 3.0);

  // A format of another camera is not this camera's.
  auto other = twoFormatCamera();
  EXPECT_FALSE(d->setActiveFormat(other->formats()[0]));
  EXPECT_EQ(d->activeFormat(), fullHd);
}

TEST(CameraDeviceTest, SessionPresetsNeedAFormatOfExactlyTheirSize) {
  auto d = twoFormatCamera();
  EXPECT_TRUE(d->supportsAVCaptureSessionPreset(AVCaptureSessionPreset1280x720));
  EXPECT_TRUE(d->supportsAVCaptureSessionPreset(AVCaptureSessionPreset1920x1080));
  for (const char* other : {AVCaptureSessionPreset640x480, AVCaptureSessionPresetiFrame960x540,
                            AVCaptureSessionPreset3840x2160, "AVCaptureSessionPreset352x288"})
    EXPECT_FALSE(d->supportsAVCaptureSessionPreset(other)) << other;
  EXPECT_TRUE(d->supportsAVCaptureSessionPreset(AVCaptureSessionPresetHigh));
  // The full-range format of the size is the one a session takes.
  auto f = d->formatForSessionPreset(AVCaptureSessionPreset1280x720);
  EXPECT_EQ(f->mediaSubType, kPixelFormat420FullRange);
  EXPECT_EQ(d->formatForSessionPreset(AVCaptureSessionPresetHigh)->width, 1920);
}

TEST(CameraDeviceTest, SubjectAreaChangesReachObserversOnlyWhileMonitored) {
  auto d = twoFormatCamera();
  int seen = 0;
  auto subscription = d->observeSubjectAreaDidChange([&] { ++seen; });
  d->subjectAreaDidChange();
  EXPECT_EQ(seen, 0);
  ASSERT_TRUE(d->lockForConfiguration());
  ASSERT_TRUE(d->setSubjectAreaChangeMonitoringEnabled(true));
  d->unlockForConfiguration();
  d->subjectAreaDidChange();
  d->subjectAreaDidChange();
  EXPECT_EQ(seen, 2);
  subscription.reset();
  d->subjectAreaDidChange();
  EXPECT_EQ(seen, 2);
}

TEST(CameraTimeTest, ComparesAcrossTimeScalesExactly) {
  EXPECT_EQ(CaptureTime::make(1, 30), CaptureTime::make(2, 60));
  EXPECT_LT(CaptureTime::make(1, 31), CaptureTime::make(1, 30));
  EXPECT_LT(CaptureTime::invalid(), CaptureTime::make(0, 1));
  EXPECT_EQ(CaptureTime::withSeconds(0.0333, 10000), CaptureTime::make(333, 10000));
  EXPECT_FALSE(CaptureTime::withSeconds(1.0, 0).isValid());
}

struct GainCase {
  const char* name;
  float kelvin, tint;
  float red, green, blue;
};

class WhiteBalanceGainTest : public testing::TestWithParam<GainCase> {};

TEST_P(WhiteBalanceGainTest, GainsForTemperatureAndTint) {
  const auto& c = GetParam();
  auto g = whiteBalanceGainsForTemperatureAndTint({c.kelvin, c.tint});
  EXPECT_NEAR(g.redGain, c.red, 1e-4) << c.name;
  EXPECT_NEAR(g.greenGain, c.green, 1e-4) << c.name;
  EXPECT_NEAR(g.blueGain, c.blue, 1e-4) << c.name;
  // And back.
  auto values = temperatureAndTintForWhiteBalanceGains(g);
  EXPECT_NEAR(values.temperature, c.kelvin, c.kelvin * 1e-4) << c.name;
  EXPECT_NEAR(values.tint, c.tint, 1e-2) << c.name;
}

// red / blue = (T / 6500)^1.5, green / sqrt(red * blue) = 2^(tint / 150),
// the smallest gain 1.
INSTANTIATE_TEST_SUITE_P(
    Values, WhiteBalanceGainTest,
    testing::Values(GainCase("Neutral", 6500, 0, 1, 1, 1),
                    // 0.5^0.75 = 0.594604; red 1, green 1/0.594604, blue 1/0.594604^2
                    GainCase("HalfTheKelvin", 3250, 0, 1, 1.681793f, 2.828427f),
                    // 2^0.75 = 1.681793
                    GainCase("TwiceTheKelvin", 13000, 0, 2.828427f, 1.681793f, 1),
                    GainCase("GreenTint", 6500, 150, 1, 2, 1),
                    GainCase("MagentaTint", 6500, -150, 2, 1, 2)),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
