// The camera controls of the capture front, on the virtual camera model with
// the manual clock driving the delayed returns to the locked modes.
#include <gtest/gtest.h>

#include "capture/LFVideoCapture.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/GlTestSupport.h"

namespace oxelo {
namespace {

using json = nlohmann::json;

// A camera of one 1280x720 format: ISO 50 to 1600, exposure 1 ms to 0.1 s.
json camera(json controls = json::object(), double maxZoom = 16, const char* position = "back") {
  auto c = json::parse(R"({"type":"wide","formats":[{"width":1280,"height":720,"fps":30,
                                                      "iso":[50,1600],"exposure":[0.001,0.1]}]})");
  c["formats"][0]["maxZoom"] = maxZoom;
  c["position"] = position;
  c["controls"] = controls.is_null() ? json::object() : std::move(controls);
  return c;
}

class CameraControlsTest : public testing::Test {
 protected:
  // Opens afresh, each time with cameras and settings of its own.
  void open(json cameras, int64_t orientation = 3) {
    device.reset();
    capture.reset();
    env.reset();  // before the new set is installed
    if (!cameras.is_array()) cameras = json::array({cameras});
    env = std::make_unique<test::CameraAndSettings>(test::camerasFromJson({{"cameras", cameras}}));
    env->defaults().setBool(keys::frontCam, cameras[0]["position"] == "front");
    ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
    capture = LFVideoCapture::create(
        LFLiveVideoConfiguration::defaultConfigurationForQualityPresetFPSOutputImageOrientation(
            1, 0, 30, orientation));
    ASSERT_TRUE(capture->videoCamera());
    device = capture->device();
    ASSERT_EQ(capture->videoCamera()->outputImageOrientation(), orientation);
  }
  void expectModes(int64_t focus, int64_t exposure, int64_t whiteBalance, const char* when) {
    EXPECT_EQ(std::tuple(device->focusMode(), device->exposureMode(), device->whiteBalanceMode()),
              std::tuple(focus, exposure, whiteBalance))
        << when;
  }

  test::ManualMain main;
  std::unique_ptr<test::CameraAndSettings> env;
  std::shared_ptr<LFVideoCapture> capture;
  std::shared_ptr<CaptureDevice> device;
};

// Cases: the device's maximum, the scale asked for, the zoom it gives, the largest scale.
TEST_F(CameraControlsTest, ZoomMapsBelowFourAndKeepsWithinTheDevice) {
  const std::tuple<double, double, double, double> cases[] = {
      {3, 2.0, 1.5, 3}, {3, 4.0, 3.0, 3}, {3, 0.5, 1.0, 3}, {1, 3.0, 1.0, 1}, {16, 6.0, 6.0, 10}};
  for (auto [deviceMax, scale, zoom, maxScale] : cases) {
    ASSERT_NO_FATAL_FAILURE(open(camera(json::object(), deviceMax)));
    capture->setZoomScale(scale);
    EXPECT_EQ(std::tuple(capture->zoomScale(), capture->maxZoomScale()), std::tuple(zoom, maxScale))
        << deviceMax << "x camera, scale " << scale;
  }
}

TEST_F(CameraControlsTest, OnlyTheFirstZoomRampsAndACameraChangeKeepsThatAndDropsTheLocks) {
  ASSERT_NO_FATAL_FAILURE(open(json::array({camera(), camera({}, 16, "front")})));
  capture->setZoomScale(2.0);
  EXPECT_EQ(device->videoZoomRampRate(), 5.0f);
  capture->setZoomScale(3.0);
  EXPECT_EQ(std::tuple(device->videoZoomRampRate(), capture->zoomScale()), std::tuple(0.0f, 3.0));

  capture->setAeLock(true);
  EXPECT_EQ(device->exposureMode(), AVCaptureExposureModeLocked);
  capture->setCaptureDevicePosition(AVCaptureDevicePositionFront);
  device = capture->device();
  ASSERT_EQ(device->position(), AVCaptureDevicePositionFront);
  EXPECT_EQ(std::tuple(capture->aeLock(), device->exposureMode()),
            std::tuple(false, AVCaptureExposureModeContinuousAutoExposure));
  capture->setZoomScale(2.0);
  EXPECT_EQ(device->videoZoomRampRate(), 0.0f);
}

TEST_F(CameraControlsTest, FocusPointTurnsIntoTheDevicesCoordinates) {
  const struct {
    const char* position;
    int64_t orientation;
    double x, y, deviceX, deviceY;
  } cases[] = {
      {"back", 3, 0.2, 0.7, 0.2, 0.7},    {"back", 4, 0.2, 0.7, 0.8, 0.3},
      {"back", 1, 0.2, 0.7, 0.7, 0.8},    {"back", 2, 0.2, 0.7, 0.3, 0.2},
      {"front", 1, 0.25, 0.5, 0.5, 0.25}, {"front", 3, 0.2, 0.7, 0.8, 0.7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.position << " " << c.orientation);
    ASSERT_NO_FATAL_FAILURE(open(camera({}, 16, c.position), c.orientation));
    capture->setFocusPoint(c.x, c.y);
    for (CapturePoint seen : {device->focusPointOfInterest(), device->exposurePointOfInterest(),
                              capture->focusPoint()}) {
      EXPECT_NEAR(seen.x, c.deviceX, 1e-9);
      EXPECT_NEAR(seen.y, c.deviceY, 1e-9);
    }
    EXPECT_TRUE(device->isSubjectAreaChangeMonitoringEnabled());
  }
}

TEST_F(CameraControlsTest, ContinuousOnlyDeviceSettlesLockedAfterATap) {
  ASSERT_NO_FATAL_FAILURE(open(camera(
      {{"focusModes", {0, 2}}, {"exposureModes", {0, 2, 3}}, {"whiteBalanceModes", {0, 2}}})));
  capture->setAutoFocus(false);
  capture->setAutoExposure(false);
  capture->setAutoWhiteBalance(false);
  expectModes(0, 0, 0, "before");
  capture->setFocusPoint(0.5, 0.5);
  expectModes(2, 2, 2, "tapped");
  main.advance(0.45);
  expectModes(2, 2, 2, "0.45 s");
  main.advance(0.1);
  expectModes(0, 0, 2, "0.55 s");
  main.advance(1.4);
  expectModes(0, 0, 2, "1.95 s");
  main.advance(0.1);
  expectModes(0, 0, 0, "2.05 s");
}

TEST_F(CameraControlsTest, TapRunsOneTimePassesOfTheUnlockedModesAndTheSceneBringsAutoBack) {
  struct Told : LFVideoCaptureViewDelegate {
    int count = 0;
    void subjectAreaDidChange() override { ++count; }
  };
  ASSERT_NO_FATAL_FAILURE(open(camera()));
  auto told = std::make_shared<Told>();
  capture->setCaptureDelegate(told);
  capture->setAfLock(true);
  capture->setAfLock(false);  // releasing does not bring the automatic mode back
  capture->setAeLock(true);
  expectModes(0, 0, 2, "locked");
  capture->setFocusPoint(0.2, 0.7);
  main.drain();
  expectModes(1, 0, 1, "tapped");
  main.advance(3.0);  // the camera's own one-time passes end locked
  expectModes(0, 0, 0, "settled");

  device->subjectAreaDidChange();  // the camera's own thread in life
  main.drain();
  expectModes(2, 0, 2, "scene moved");
  EXPECT_EQ(std::tuple(device->focusPointOfInterest(),
                       device->isSubjectAreaChangeMonitoringEnabled(), told->count),
            std::tuple(CapturePoint{0.5, 0.5}, false, 1));
}

TEST_F(CameraControlsTest, LockingCustomExposureLeavesItCustom) {
  ASSERT_NO_FATAL_FAILURE(open(camera()));
  capture->setCustomExposure(true);
  capture->setAeLock(true);
  capture->setAutoExposure(false);
  EXPECT_TRUE(capture->customExposure());
  capture->setAutoExposure(true);
  EXPECT_TRUE(capture->autoExposure());
}

// Starting from 1/60 s at ISO 100 with a bias of 1, which a custom exposure sets back to 0.
TEST_F(CameraControlsTest, CustomExposureKeepsTheTimeAndIsoWithinTheFormat) {
  const struct {
    bool custom;
    double seconds, iso;  // 0: that one is left alone (setISO, setExposure)
    double wantSeconds, wantIso;
  } cases[] = {
      {true, 0, 400, 1.0 / 60, 400},    {true, 0, 5000, 1.0 / 60, 1600},    // clamped high
      {true, 0.0001, 0, 1.0 / 60, 100}, {true, 1.0, 0, 0.1, 100},           // too short: kept; cut
      {true, 0.05, 800, 0.05, 800},     {false, 0.05, 800, 1.0 / 60, 100},  // no custom mode
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.custom << " " << c.seconds << " s, ISO " << c.iso);
    const json modes = c.custom ? json::array({0, 1, 2, 3}) : json::array({0, 1, 2});
    ASSERT_NO_FATAL_FAILURE(open(camera({{"exposureModes", modes}})));
    capture->setExposureTargetBias(1.0);
    ASSERT_NEAR(capture->exposure(), 1.0 / 60, 1e-6);
    if (c.seconds == 0) {
      capture->setISO(c.iso);
    } else if (c.iso == 0) {
      capture->setExposure(c.seconds);
    } else {
      capture->setExposureAndISO(c.seconds, c.iso);
    }
    EXPECT_NEAR(capture->exposure(), c.wantSeconds, 1e-6);
    EXPECT_EQ(std::tuple(capture->ISO(), capture->customExposure(), capture->exposureTargetBias()),
              std::tuple(c.wantIso, c.custom, c.custom ? 0.0 : 1.0));
  }
}

TEST_F(CameraControlsTest, LensIsRefusedOutsideZeroToOne) {
  ASSERT_NO_FATAL_FAILURE(open(json::array({camera(), camera({{"lensPosition", false}})})));
  const double before = capture->lensPosition();
  for (double refused : {1.01, -0.01}) capture->setLensPosition(refused);
  EXPECT_EQ(std::tuple(capture->lensPosition(), device->focusMode()),
            std::tuple(before, AVCaptureFocusModeContinuousAutoFocus));
  capture->setLensPosition(1.0);
  EXPECT_EQ(std::tuple(capture->lensPosition(), device->focusMode()),
            std::tuple(1.0, AVCaptureFocusModeLocked));

  capture->setCameraByIndex(1);
  device = capture->device();
  capture->setLensPosition(0.2);
  EXPECT_NE(capture->lensPosition(), 0.2);
}

TEST_F(CameraControlsTest, BiasAndWhiteBalanceGainsAreClamped) {
  ASSERT_NO_FATAL_FAILURE(open(camera({{"exposureBias", {-2, 2}}, {"maxWhiteBalanceGain", 2}})));
  capture->setExposureTargetBias(5.0);
  EXPECT_EQ(std::tuple(capture->exposureTargetBias(), capture->autoExposure()),
            std::tuple(2.0, true));
  // 2000 K asks for gains 1, 2.42, 5.86; kept at 2 they read back as 4095 K, tint +75.
  capture->setWbTempAndTint(2000, 0);
  EXPECT_EQ(std::tuple(device->deviceWhiteBalanceGains(), device->whiteBalanceMode()),
            std::tuple(AVCaptureWhiteBalanceGains{1, 2, 2}, AVCaptureWhiteBalanceModeLocked));
  EXPECT_NEAR(capture->wbTempAndTint().temperature, 4094.7, 0.5);
  EXPECT_NEAR(capture->wbTempAndTint().tint, 75.0, 0.01);
}

// Torch levels 0 to 5: two settings in a row and what stands after them.
TEST_F(CameraControlsTest, TorchLevelsZeroToFive) {
  auto held = camera();
  held["lockError"] = "held elsewhere";
  const struct {
    json camera;
    int64_t first, second;
    float level;  // 0: off
    int64_t torch;
  } cases[] = {
      {camera(), 2, 5, 1.0f, 5},  // five is full
      {camera(), 3, 6, 0.6f, 3},  // six is refused
      {camera(), 3, 0, 0.0f, 0}, {camera({{"torch", false}}), 3, 3, 0.0f, 0}, {held, 3, 3, 0.0f, 0},
  };
  for (const auto& c : cases) {
    ASSERT_NO_FATAL_FAILURE(open(c.camera));
    capture->setTorch(c.first);
    capture->setTorch(c.second);
    EXPECT_EQ(
        std::tuple(device->torchMode(), device->torchLevel(), capture->torch()),
        std::tuple(c.level > 0 ? AVCaptureTorchModeOn : AVCaptureTorchModeOff, c.level, c.torch))
        << c.camera.dump() << " " << c.first << " then " << c.second;
  }
}

}  // namespace
}  // namespace oxelo
