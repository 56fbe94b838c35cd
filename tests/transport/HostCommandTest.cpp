// The host's commands as they reach the session through the socket, what
// they do to the camera front, and what the next status block tells.
#include <gtest/gtest.h>

#include "platform/defaults/SettingsKeys.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/TestBytes.h"
#include "tests/transport/support/StreamSocketHarness.h"

namespace oxelo {
namespace {

using test::hex;

class HostCommandTest : public test::LiveSessionFixture {
 protected:
  void SetUp() override { useCameras(16.0); }

  // A back and a front camera zooming maxZoom times, with every control.
  void useCameras(double maxZoom) {
    if (session_) session_->stopLive();
    auto format =
        nlohmann::json{{"width", 1280}, {"height", 720}, {"fps", 30}, {"maxZoom", maxZoom}};
    CameraSystem::setCurrent(test::camerasFromJson(
        {{"cameras",
          {{{"type", "wide"}, {"position", "back"}, {"formats", {format}}},
           {{"type", "wide"}, {"position", "front"}, {"formats", {format}}}}}}));
    createSession(kCaptureMaskVideo, view_);
    capture_ = session_->videoCapture();
    ASSERT_TRUE(capture_ && capture_->device());
  }

  // One record from the host, as the socket reads it, then what it posted.
  void host(std::string_view record) {
    session_->streamSocket()->handleClientCmd(hex(record));
    main_.drain();
  }

  std::shared_ptr<test::RecordingView> view_ = std::make_shared<test::RecordingView>();
  std::shared_ptr<LFVideoCapture> capture_;
};

TEST_F(HostCommandTest, TorchStepsThroughZeroToFiveAndBackWhateverP1Holds) {
  std::vector<uint32_t> onTheWire;
  for (int i = 0; i < 7; ++i) {
    host(i % 2 ? "88 00 00 00 | 25 00 00 00" : "88 00 00 00 | 25 00 00 00 | 03 00 00 00");
    onTheWire.push_back(statusBlock().session.torch);
  }
  EXPECT_EQ(onTheWire, (std::vector<uint32_t>{1, 2, 3, 4, 5, 0, 1}));
  EXPECT_FLOAT_EQ(capture_->device()->torchLevel(), 0.2f);
}

// Sub-commands of 18: each value reaches the camera, scaled back from the
// wire, and the next status block tells it; the tint stays as it was.
struct ParameterCase {
  const char* name;
  const char* record;
  int32_t wire::StatusBlock::*field;
  int32_t expected;
};

class CameraParameterTest : public HostCommandTest,
                            public testing::WithParamInterface<ParameterCase> {};

TEST_P(CameraParameterTest, ReachesTheCameraAndTheNextStatusBlock) {
  capture_->setWbTempAndTint(4000.0f, 10.0f);
  const float tint = capture_->wbTempAndTint().tint;
  host(GetParam().record);
  EXPECT_NEAR(statusBlock().*GetParam().field, GetParam().expected, 1);
  EXPECT_NEAR(capture_->wbTempAndTint().tint, tint, 0.01f);
}

using P = ParameterCase;
using S = wire::StatusBlock;
INSTANTIATE_TEST_SUITE_P(
    SubCommands, CameraParameterTest,
    testing::Values(
        P{"ExposureInTenThousandths", "88000000 12000000 01000000 f4010000", &S::exposure, 500},
        P{"Iso", "88000000 12000000 02000000 90010000", &S::iso, 400},
        P{"BiasInTenths", "88000000 12000000 03000000 fbffffff", &S::bias, -5},
        P{"TemperatureInKelvin", "88000000 12000000 04000000 88130000", &S::temperature, 5000},
        P{"LensInHundredths", "88000000 12000000 05000000 32000000", &S::lensPosition, 50},
        P{"ZoomInTenths", "88000000 12000000 06000000 19000000", &S::zoom, 25},
        P{"UnknownSubCommandDoesNothing", "88000000 12000000 07000000 19000000", &S::zoom, 10}),
    [](const auto& info) { return info.param.name; });

// 11, 14 and 15: P2 0 automatic, 2 locked, else neither; each tells the
// panel which item to bring up to date. Every case starts fully locked.
struct AutoCase {
  const char* name;
  const char* record;
  bool (LFVideoCapture::*lock)() const;
  bool (LFVideoCapture::*automatic)() const;
  bool locked, automaticNow;
  int64_t item;
};

class AutoSubCommandTest : public HostCommandTest, public testing::WithParamInterface<AutoCase> {};

TEST_P(AutoSubCommandTest, SetsTheLockThenPerhapsTheAutomaticModeAndTellsThePanel) {
  session_->setAeafLock(2);
  host(std::string("88000000 12000000 ") + GetParam().record);
  EXPECT_EQ(((*capture_).*GetParam().lock)(), GetParam().locked);
  EXPECT_EQ(((*capture_).*GetParam().automatic)(), GetParam().automaticNow);
  EXPECT_EQ(view_->items, std::vector<int64_t>{GetParam().item});
}

using A = AutoCase;
using C = LFVideoCapture;
INSTANTIATE_TEST_SUITE_P(
    SubCommands, AutoSubCommandTest,
    testing::Values(
        A{"ExposureAutomatic", "0b000000 00000000", &C::aeLock, &C::autoExposure, false, true, 0},
        A{"ExposureNeither", "0b000000 01000000", &C::aeLock, &C::autoExposure, false, false, 0},
        A{"WhiteBalanceLocked", "0e000000 02000000", &C::awbLock, &C::autoWhiteBalance, 1, 0, 3},
        A{"WhiteBalanceAuto", "0e000000 00000000", &C::awbLock, &C::autoWhiteBalance, 0, 1, 3},
        A{"FocusAutomatic", "0f000000 00000000", &C::afLock, &C::autoFocus, false, true, 4},
        A{"FocusNeither", "0f000000 07000000", &C::afLock, &C::autoFocus, false, false, 4}),
    [](const auto& info) { return info.param.name; });

// Command 41 takes P1 AND 3; the value read back and sent in the block is
// built from the capture's locks and modes.
TEST_F(HostCommandTest, LockFiveActsAsOneAndTheBlockFollows) {
  host("88000000 29000000 02000000");
  EXPECT_TRUE(capture_->aeLock() && capture_->afLock() && capture_->awbLock());
  EXPECT_EQ(statusBlock().session.aeafLock, 2u);
  host("88000000 29000000 05000000");
  EXPECT_FALSE(capture_->aeLock() || capture_->afLock() || capture_->awbLock());
  EXPECT_FALSE(capture_->autoExposure() || capture_->autoFocus() || capture_->autoWhiteBalance());
  EXPECT_FALSE(capture_->device()->isSubjectAreaChangeMonitoringEnabled());
  EXPECT_EQ(statusBlock().session.aeafLock, 1u);
  host("88000000 29000000 00000000");
  EXPECT_TRUE(capture_->autoExposure() && capture_->autoFocus() && capture_->autoWhiteBalance());
  EXPECT_EQ(statusBlock().session.aeafLock, 0u);
}

// The session flags word as the host reads it: beauty 1, mirror, torch 3,
// lock 2; beauty switched off stores method 0.
TEST_F(HostCommandTest, SessionFlagsWordCarriesWhatTheCommandsSet) {
  host("88000000 26000000 01000000");  // beauty, method 1
  host("88000000 23000000 01000000");  // mirror
  for (int i = 0; i < 3; ++i) host("88000000 25000000");
  host("88000000 29000000 02000000");
  auto block = wire::buildStatusBlock(*session_->statusSource());
  EXPECT_EQ(test::Bytes(block.begin() + 12, block.begin() + 16), hex("05 03 00 02"));
  host("88000000 26000000 00000000");  // off, and the method with it
  EXPECT_FALSE(session_->beautyFace());
  EXPECT_EQ(session_->beautyMethod(), 0);
  EXPECT_EQ(statusBlock().session.beauty, 0u);
}

TEST_F(HostCommandTest, FocusPointIsMirroredAndTheCapabilityBlockTellsTheZoomLimit) {
  session_->setMirror(true);
  host("88000000 17000000 ff000000 ff000000");
  EXPECT_EQ(view_->focus, std::make_pair(0.0, 1.0));
  EXPECT_EQ(capabilityBlock().zoomMax, 100) << "a 16x wide camera zooms 10x at most";
}

// Zoom steps of 5 percent within 1.0 and the camera's limit; a step out that
// would fall below 1.0 is not taken at all.
struct ZoomCase {
  const char* name;
  double maxZoom;
  double from;
  const char* record;
  double expected;
};

class ZoomStepTest : public HostCommandTest, public testing::WithParamInterface<ZoomCase> {};

TEST_P(ZoomStepTest, StepsByFivePercentWithinTheLimits) {
  useCameras(GetParam().maxZoom);
  session_->setZoomScale(GetParam().from);
  host(GetParam().record);
  EXPECT_NEAR(session_->zoomScaleProperty().get(), GetParam().expected, 1e-9);
}

constexpr const char* kIn = "88000000 15000000";
constexpr const char* kOut = "88000000 16000000";
using Z = ZoomCase;
INSTANTIATE_TEST_SUITE_P(Steps, ZoomStepTest,
                         testing::Values(Z{"In", 16, 2.0, kIn, 2.1},
                                         Z{"InStopsAtTheCapturesLimit", 16, 9.8, kIn, 10.0},
                                         Z{"InWithoutZoomDoesNothing", 1, 1.0, kIn, 1.0},
                                         Z{"Out", 16, 2.1, kOut, 2.0},
                                         Z{"OutFrom105ReachesOne", 16, 1.05, kOut, 1.0},
                                         Z{"OutFrom104Stays", 16, 1.04, kOut, 1.04}),
                         [](const auto& info) { return info.param.name; });

// 42 saves to slot P1 mod 5 + 1 and makes it durable, 43 loads it, 44
// deletes it; a slot with no value loads nothing.
TEST_F(HostCommandTest, PresetsSaveLoadAndDeleteBySlot) {
  session_->setTorch(2);
  session_->setZoomScale(3.0);
  session_->setMirror(false);
  host("88000000 2a000000 07000000");  // slot 3
  auto stored = UserDefaults(settings_.dir.path()).objectForKey("preset_3");
  EXPECT_EQ(stored.value(keys::torchLevel, -1), 2);
  EXPECT_EQ(stored.value(keys::deviceType, ""), device_type::kWideAngle);

  session_->setTorch(0);
  session_->setZoomScale(1.0);
  session_->setMirror(true);
  host("88000000 2b000000 02000000");  // slot 3 again
  main_.advance(1.0);
  EXPECT_FALSE(session_->mirror());
  EXPECT_EQ(session_->torch(), 2);
  EXPECT_EQ(session_->zoomScale(), 3.0);

  host("88000000 2c000000 0c000000");  // slot 3 once more
  EXPECT_TRUE(settings_.defaults->objectForKey("preset_3").is_null());
  session_->setMirror(true);
  host("88000000 2b000000 07000000");
  main_.advance(1.5);
  EXPECT_TRUE(session_->mirror()) << "an empty slot loads nothing";
}

// Steps 8 to 10 (focus, exposure lock, white balance) act at once; the
// manual exposure follows 0.1 s later, the torch 0.5 s, the zoom 1.0 s.
TEST_F(HostCommandTest, PresetAppliesFocusAndWhiteBalanceBeforeTheDelayedSteps) {
  capture_->setExposureTargetBias(-1.0);
  session_->loadPreset({{keys::torchLevel, 4},
                        {keys::exposureTargetBias, 1.0},
                        {keys::zoomScale, 2.0},
                        {keys::afLock, true},
                        {keys::lensPosition, 0.25},
                        {keys::aeLock, true},
                        {keys::exposure, 0.05},
                        {keys::ISO, 200.0},
                        {keys::customExposure, true},
                        {keys::awbLock, true},
                        {keys::wbTemperature, 5000.0}});
  EXPECT_TRUE(capture_->afLock() && capture_->aeLock() && capture_->awbLock());
  EXPECT_EQ(capture_->lensPosition(), 0.25);
  EXPECT_NEAR(capture_->wbTempAndTint().temperature, 5000.0f, 1.0f);
  EXPECT_FALSE(capture_->customExposure());
  EXPECT_EQ(capture_->exposureTargetBias(), -1.0) << "the bias goes with automatic exposure only";
  EXPECT_EQ(session_->torch(), 0);
  EXPECT_EQ(session_->zoomScale(), 1.0);
  main_.advance(0.1);
  EXPECT_TRUE(capture_->customExposure());
  EXPECT_NEAR(capture_->exposure(), 0.05, 1e-9);
  EXPECT_EQ(capture_->ISO(), 200.0);
  main_.advance(0.4);
  EXPECT_EQ(session_->torch(), 4);
  EXPECT_EQ(session_->zoomScale(), 1.0);
  main_.advance(0.5);
  EXPECT_EQ(session_->zoomScale(), 2.0);
}

// What a preset leaves out, or may not say, stays as it was.
TEST_F(HostCommandTest, PresetAppliesOnlyWhatItMaySay) {
  session_->setTorch(3);
  capture_->setExposureTargetBias(-1.0);
  auto load = [&](const UserDefaults::Json& preset) {
    session_->loadPreset(preset);
    main_.advance(1.5);
  };
  load({{keys::torchLevel, 0}, {keys::frontCam, true}});
  EXPECT_EQ(session_->torch(), 3) << "level 0 leaves the torch";
  EXPECT_EQ(session_->captureDevicePosition(), 1) << "no deviceType leaves the camera";
  load({{keys::exposureTargetBias, 1.0}, {keys::exposure, 0.05}, {keys::ISO, 200.0}});
  EXPECT_FALSE(capture_->customExposure()) << "manual exposure without the custom mark";
  EXPECT_NEAR(capture_->exposure(), 0.05, 1e-9);
  load({{keys::autoExposure, true}, {keys::exposureTargetBias, 1.0}});
  EXPECT_TRUE(capture_->autoExposure());
  EXPECT_EQ(capture_->exposureTargetBias(), 1.0) << "the bias with automatic exposure";
  load({{keys::frontCam, true}, {keys::deviceType, device_type::kWideAngle}});
  EXPECT_EQ(session_->captureDevicePosition(), 2);
  EXPECT_FALSE(session_->useBackMic());
}

}  // namespace
}  // namespace oxelo
