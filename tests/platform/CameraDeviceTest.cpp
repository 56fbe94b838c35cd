#include <gtest/gtest.h>

#include <stdlib.h>
#include <fstream>
#include <functional>
#include <tuple>

#include "platform/camera/CameraSystem.h"
#include "platform/camera/CaptureDevice.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/camera/WhiteBalanceModel.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/TestSupport.h"

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
  EXPECT_FALSE(d->isLockedForConfiguration() || d->setVideoZoomFactor(2.0));
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
  EXPECT_EQ(std::tuple(d->videoZoomFactor(), d->focusMode()),
            std::tuple(2.0, AVCaptureFocusModeLocked));
}

TEST(CameraDeviceTest, AFailedLockGivesItsReasonAndRefusesChanges) {
  json camera = test::cameraJson("wide", "back", {{{1280, 720}, 30}});
  camera["lockError"] = "in use by another client";
  auto d = test::camerasFromJson({{"cameras", {camera}}})->devices().front();
  std::string error;
  EXPECT_FALSE(d->lockForConfiguration(&error));
  EXPECT_EQ(error, "in use by another client");
  EXPECT_FALSE(d->isLockedForConfiguration() || d->setExposureTargetBias(1.0f));
  EXPECT_FLOAT_EQ(d->exposureTargetBias(), 0.0f);
}

TEST(CameraDeviceTest, StartsInTheBestAutomaticModesOrLockedWithoutThem) {
  auto modes = [](const CaptureDevice& d) {
    return std::tuple(d.focusMode(), d.exposureMode(), d.whiteBalanceMode());
  };
  EXPECT_EQ(modes(*twoFormatCamera()), std::tuple(2, 2, 2));  // each continuous
  auto oneShot = twoFormatCamera({{"focusModes", {0, 1}}, {"exposureModes", {0}}});
  EXPECT_EQ(modes(*oneShot), std::tuple(1, 0, 2));
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
        Refusal("HdrOnAFormatWithout", {},  // the 1920x1080 format has it, 1280x720 not
                [](D& d) {
                  d.setAutomaticallyAdjustsVideoHDREnabled(false);
                  return d.setVideoHDREnabled(true);
                }),
        Refusal("FrameDurationOutsideTheRanges", {},
                [](D& d) { return d.setActiveVideoMinFrameDuration(CaptureTime::make(1, 45)); })),
    [](const auto& info) { return std::string(info.param.name); });

// The invalid frame time returns the frames to the format's own timing.
TEST(CameraDeviceTest, AcceptedChangesTakeTheirValues) {
  auto d = twoFormatCamera();
  ASSERT_TRUE(d->lockForConfiguration());
  ASSERT_TRUE(d->setActiveFormat(d->formats()[1]));  // 1280x720 "420f"
  CaptureTime before = d->exposureDuration();
  auto exposure = [&] { return std::tuple(d->exposureMode(), d->exposureDuration(), d->ISO()); };
  ASSERT_TRUE(d->setExposureModeCustomWithDurationISO(AVCaptureExposureDurationCurrent, 400.0f));
  EXPECT_EQ(exposure(), std::tuple(AVCaptureExposureModeCustom, before, 400.0f));
  const auto longest = CaptureTime::make(1, 4);  // the maximum is allowed
  ASSERT_TRUE(d->setExposureModeCustomWithDurationISO(longest, AVCaptureISOCurrent));
  EXPECT_EQ(exposure(), std::tuple(AVCaptureExposureModeCustom, longest, 400.0f));
  EXPECT_EQ(d->activeMaxExposureDuration(), longest);

  ASSERT_TRUE(d->rampToVideoZoomFactorWithRate(4.0, 5.0f));
  EXPECT_EQ(std::pair(d->videoZoomFactor(), d->videoZoomRampRate()), std::pair(4.0, 5.0f));
  ASSERT_TRUE(d->setVideoZoomFactor(2.0));
  EXPECT_FLOAT_EQ(d->videoZoomRampRate(), 0.0f);

  std::string error;
  ASSERT_TRUE(d->setTorchModeOnWithLevel(0.6f, &error)) << error;
  EXPECT_EQ(std::tuple(d->torchMode(), d->torchLevel()), std::tuple(AVCaptureTorchModeOn, 0.6f));
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
  EXPECT_EQ(std::tuple(d->activeFormat(), d->activeVideoMinFrameDuration(),
                       d->activeVideoMaxFrameDuration(), d->videoZoomFactor()),
            std::tuple(fullHd, CaptureTime::make(1, 30), CaptureTime::make(1, 30), 3.0));

  // A format of another camera is not this camera's.
  auto other = twoFormatCamera();
  EXPECT_FALSE(d->setActiveFormat(other->formats()[0]));
  EXPECT_EQ(d->activeFormat(), fullHd);
}

TEST(CameraDeviceTest, SessionPresetsNeedAFormatOfExactlyTheirSize) {
  auto d = twoFormatCamera();
  for (const char* preset : {AVCaptureSessionPreset1280x720, AVCaptureSessionPreset1920x1080,
                             AVCaptureSessionPresetHigh})
    EXPECT_TRUE(d->supportsAVCaptureSessionPreset(preset)) << preset;
  for (const char* other : {AVCaptureSessionPreset640x480, AVCaptureSessionPresetiFrame960x540,
                            AVCaptureSessionPreset3840x2160, "AVCaptureSessionPreset352x288"})
    EXPECT_FALSE(d->supportsAVCaptureSessionPreset(other)) << other;
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

// red / blue = (T / 6500)^1.5, green / sqrt(red * blue) = 2^(tint / 150), the smallest gain 1:
// 0.5^0.75 = 0.594604, so half the kelvin gives red 1, green 1/0.594604, blue 1/0.594604^2.
TEST(WhiteBalanceGainTest, GainsForTemperatureAndTintAndBack) {
  const struct {
    float kelvin, tint, red, green, blue;
  } cases[] = {{6500, 0, 1, 1, 1},
               {3250, 0, 1, 1.681793f, 2.828427f},
               {13000, 0, 2.828427f, 1.681793f, 1},
               {6500, 150, 1, 2, 1},
               {6500, -150, 2, 1, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.kelvin << " K, tint " << c.tint);
    auto g = whiteBalanceGainsForTemperatureAndTint({c.kelvin, c.tint});
    EXPECT_NEAR(g.redGain, c.red, 1e-4);
    EXPECT_NEAR(g.greenGain, c.green, 1e-4);
    EXPECT_NEAR(g.blueGain, c.blue, 1e-4);
    auto values = temperatureAndTintForWhiteBalanceGains(g);
    EXPECT_NEAR(values.temperature, c.kelvin, c.kelvin * 1e-4);
    EXPECT_NEAR(values.tint, c.tint, 1e-2);
  }
}

TEST(CameraVirtualSetTest, DiscoveryOrdersByTheListOfTypesThenBySystemOrder) {
  auto system = test::camerasFromJson({{"cameras",
                                        {test::cameraJson("wide", "back", {{{640, 480}, 30}}),
                                         test::cameraJson("triple", "back", {{{640, 480}, 30}}),
                                         test::cameraJson("wide", "front", {{{640, 480}, 30}}),
                                         test::cameraJson("wide", "back", {{{640, 480}, 30}})}}});
  const auto& all = system->devices();
  auto back = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
      {AVCaptureDeviceTypeBuiltInTripleCamera, AVCaptureDeviceTypeBuiltInWideAngleCamera},
      AVMediaTypeVideo, AVCaptureDevicePositionBack, system);
  EXPECT_EQ(back.devices(), (std::vector{all[1], all[0], all[3]}));

  auto anywhere = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
      {AVCaptureDeviceTypeBuiltInWideAngleCamera}, AVMediaTypeVideo,
      AVCaptureDevicePositionUnspecified, system);
  EXPECT_EQ(anywhere.devices(), (std::vector{all[0], all[2], all[3]}));

  EXPECT_EQ(system->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                                AVMediaTypeVideo, AVCaptureDevicePositionFront),
            all[2]);
  EXPECT_EQ(system->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInTelephotoCamera,
                                                AVMediaTypeVideo, AVCaptureDevicePositionBack),
            nullptr);
  EXPECT_EQ(system->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera, "soun",
                                                AVCaptureDevicePositionBack),
            nullptr);
  EXPECT_EQ(system->deviceWithUniqueID(all[3]->uniqueID()), all[3]);

  // Without a set of its own, discovery looks in the process-wide one.
  CameraSystem::setCurrent(nullptr);
  EXPECT_TRUE(CameraSystem::current()->devices().empty());
  CameraSystem::setCurrent(system);
  auto installed = CaptureDeviceDiscoverySession::discoverySessionWithDeviceTypes(
      {AVCaptureDeviceTypeBuiltInTripleCamera}, AVMediaTypeVideo, AVCaptureDevicePositionBack);
  EXPECT_EQ(installed.devices(), (std::vector{all[1]}));
  CameraSystem::setCurrent(nullptr);
}

// A file that cannot be used fails with its name and the reason.
TEST(CameraVirtualSetTest, OpenVirtualTakesTheFileTheEnvironmentNames) {
  test::TempDir dir;
  auto file = dir.path() / "cameras.json";
  setenv("OXELO_VIRTUAL_CAMERAS", file.string().c_str(), 1);
  std::ofstream(file) << R"({"cameras":[{"type":"telephoto","position":"front",
      "name":"Odd One","formats":[{"width":800,"height":600,"fps":24}]}]})";
  std::string error;
  auto system = CameraSystem::open("virtual", error);
  ASSERT_TRUE(system) << error;
  ASSERT_EQ(system->devices().size(), 1u);
  EXPECT_EQ(std::tuple(system->backend(), system->devices()[0]->localizedName(),
                       system->devices()[0]->position()),
            std::tuple("virtual", "Odd One", AVCaptureDevicePositionFront));

  std::ofstream(file) << R"({"cameras":[{"type":"wide","position":"side","formats":[]}]})";
  EXPECT_FALSE(CameraSystem::open("virtual", error));
  unsetenv("OXELO_VIRTUAL_CAMERAS");
  for (auto part :
       {std::string("OXELO_VIRTUAL_CAMERAS"), file.string(), std::string("cameras[0].position")})
    EXPECT_NE(error.find(part), std::string::npos) << error;
}

TEST(CameraSourceTest, RefusesWhatItCannotUse) {
  const std::pair<const char*, const char*> sources[] = {
      {"usb", "auto, virtual, v4l2"},
      {"v4l2:", "needs a device"},
      {"v4l2:/dev/oxelo-no-such-camera", "No such file or directory"},
      {"v4l2:/dev/null", "not a V4L2 device"}};
  for (auto [source, errorPart] : sources) {
    std::string error;
    EXPECT_FALSE(CameraSystem::open(source, error)) << source;
    EXPECT_NE(error.find(errorPart), std::string::npos) << error;
  }
}

// The second camera mentions nothing optional: both subtypes per entry, a name from its position.
TEST(CameraJsonLoaderTest, ReadsRangesSubtypesLimitsAndControls) {
  std::string error;
  auto set = parseVirtualCameras(json::parse(R"({"cameras":[
      {"type":"AVCaptureDeviceTypeBuiltInDualCamera","position":2,"uniqueID":"d1",
       "formats":[{"width":1920,"height":1080,"fps":[[1,30],[60,60]],"subtypes":["420f"],
                   "iso":[20,800],"exposure":[0.001,0.1],"maxZoom":4,"hdr":true}],
       "controls":{"focusModes":[0],"exposureModes":[2,3],"torch":false,"exposureBias":[-3,3],
                   "maxWhiteBalanceGain":2.5},
       "constituents":["wide","telephoto"],"switchOverZoomFactors":[2]},
      {"type":"wide","position":"back",
       "formats":[{"width":1280,"height":720,"fps":30},{"width":640,"height":480,"fps":60}]}]})"),
                                 error);
  ASSERT_TRUE(set) << error;
  ASSERT_EQ(set->size(), 2u);
  // The other limits a format or the controls name are checked by the refusals they cause.
  const auto& d = (*set)[0].description;
  EXPECT_EQ(std::tuple(d.uniqueID, d.deviceType, d.position),
            std::tuple("d1", AVCaptureDeviceTypeBuiltInDualCamera, AVCaptureDevicePositionFront));
  ASSERT_EQ(d.formats.size(), 1u);
  const auto& f = d.formats[0];
  const auto& rates = f.videoSupportedFrameRateRanges;
  ASSERT_EQ(rates.size(), 2u);
  EXPECT_EQ(std::tuple(f.mediaSubType, rates[1].minFrameDuration, rates[0].maxFrameDuration),
            std::tuple("420f", CaptureTime::make(1, 60), CaptureTime::make(1, 1)));
  const auto& c = d.capabilities;
  EXPECT_EQ(std::pair(c.focusModes, c.exposureModes), std::pair(0b1u, 0b1100u));
  EXPECT_TRUE(c.lockingFocusWithCustomLensPosition);  // not mentioned: supported
  EXPECT_EQ(std::tuple(f.minISO, f.videoHDRSupported, c.minExposureTargetBias),
            std::tuple(20.0f, true, -3.0f));
  EXPECT_EQ(c.constituentDeviceTypes.size(), 2u);

  const auto& plain = (*set)[1].description;
  EXPECT_EQ(plain.localizedName, "Back Camera");
  std::vector<std::tuple<int, std::string, double>> formats;
  for (const auto& p : plain.formats)
    formats.emplace_back(p.width, p.mediaSubType, p.maxFrameRate());
  EXPECT_EQ(formats,
            (decltype(formats){
                {1280, "420v", 30}, {1280, "420f", 30}, {640, "420v", 60}, {640, "420f", 60}}));
}

// A text that starts with a key is the rest of a back wide camera.
std::string documentOf(const std::string& text) {
  if (text[0] != '"') return text;
  return R"({"cameras":[{"type":"wide","position":"back",)" + text + "}]}";
}

TEST(CameraJsonLoaderTest, ErrorsNameThePlaceAndTheFault) {
  const struct {
    const char *text, *errorPart;
  } documents[] = {
      {"[1,2]", "document: must be an object"},
      {"{}", "needs \"cameras\""},
      {R"({"cameras":[{"type":"fisheye","position":"back","formats":[]}]})",
       "cameras[0].type: unknown camera type \"fisheye\""},
      {R"({"cameras":[{"type":"wide","formats":[]}]})", "cameras[0]: needs \"position\""},
      {R"({"cameras":[{"type":"wide","position":3,"formats":[]}]})",
       "cameras[0].position: must be \"back\" or \"front\""},
      {R"("formats":[{"width":640,"heigth":480,"fps":30}])",
       "cameras[0].formats[0]: unknown key \"heigth\""},
      {R"("formats":[{"width":0,"height":480,"fps":30}])",
       "cameras[0].formats[0].width: must be a whole number"},
      {R"("formats":[{"width":640,"height":480,"fps":"30"}])",
       "formats[0].fps: must be a rate or a list"},
      {R"("formats":[{"width":640,"height":480,"fps":[[60,30]]}])",
       "formats[0].fps[0]: the first number must not be above the second"},
      {R"("formats":[{"width":640,"height":480,"fps":30,"subtypes":["yuvs"]}])",
       "subtypes: holds a subtype other than"},
      {R"("formats":[],"controls":{"exposureModes":[2,4]})",
       "controls.exposureModes: holds a mode that is not 0 to 3"},
      {R"("formats":[],"controls":{"torch":1})", "controls.torch: must be true or false"},
      {R"({"cameras":[{"type":"triple","position":"back","formats":[],
          "switchOverZoomFactors":[2]}]})",
       "switchOverZoomFactors: needs \"constituents\""},
      {R"({"cameras":[{"type":"wide","position":"back","formats":[],"uniqueID":"a"},
                      {"type":"wide","position":"front","formats":[],"uniqueID":"a"}]})",
       "cameras[1].uniqueID: \"a\" is used twice"},
  };
  for (const auto& d : documents) {
    std::string error;
    EXPECT_FALSE(parseVirtualCameras(json::parse(documentOf(d.text)), error)) << d.text;
    EXPECT_NE(error.find(d.errorPart), std::string::npos) << error;
  }
}

TEST(CameraJsonLoaderTest, FileErrorsNameTheFile) {
  test::TempDir dir;
  std::string error;
  std::ofstream(dir.path() / "broken.json") << "{\"cameras\": [";
  for (auto [name, fault] :
       {std::pair{"none.json", ": cannot be read"}, {"broken.json", ": not valid JSON"}}) {
    EXPECT_FALSE(loadVirtualCameras(dir.path() / name, error));
    EXPECT_EQ(error, (dir.path() / name).string() + fault);
  }
}

}  // namespace
}  // namespace oxelo
