// The live screen's rules as plain values, expected values worked out by hand.
#include <gtest/gtest.h>

#include "live/CameraAccess.h"
#include "live/CameraFocusSquare.h"
#include "live/IdleTimer.h"
#include "live/LiveGestures.h"
#include "live/LiveIndicators.h"
#include "live/LiveLayout.h"
#include "platform/camera/CameraSystem.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

struct LayoutCase {
  const char* name;
  double width, height;
  bool tablet, landscape;
  double space, top, row, bottom;  // expected
  bool wifiHidden;
};
class LayoutValuesTest : public testing::TestWithParam<LayoutCase> {};

TEST_P(LayoutValuesTest, MarginsAndGapFollowTheDeviceAndItsShape) {
  const auto& c = GetParam();
  const LiveLayout l = liveLayout(
      {.width = c.width, .height = c.height, .tablet = c.tablet, .landscape = c.landscape});
  EXPECT_EQ(l.buttonSpace, c.space);
  EXPECT_EQ(l.topMargin, c.top);
  EXPECT_EQ(l.rowMargin, c.row);
  EXPECT_EQ(l.bottomMargin, c.bottom);
  EXPECT_EQ(l.wifiHidden, c.wifiHidden);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Devices, LayoutValuesTest, testing::Values(
    LayoutCase{"TallPhonePortrait", 390, 844, false, false, 4, 2, 4, 5, false},
    LayoutCase{"TallPhoneLandscape", 844, 390, false, true, 15, 5, 10, 15, false},
    LayoutCase{"SixteenByNinePhonePortrait", 414, 736, false, false, 10, 15, 15, 15, false},
    LayoutCase{"SmallPhonePortrait", 320, 568, false, false, 0, 5, 5, 5, true},
    LayoutCase{"SmallPhoneLandscape", 568, 320, false, true, 7, 5, 5, 5, false},
    LayoutCase{"TabletLandscape", 1024, 768, true, true, 20, 15, 20, 15, false},
    LayoutCase{"TabletPortrait", 768, 1024, true, false, 15, 15, 20, 15, false}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST(LiveLayoutTest, TheVideoRectangleAndTheRowsOfATallPhoneInLandscapeAndOtherShapes) {
  const LiveLayout l = liveLayout({.width = 844, .height = 390});
  // 390 x 16/9 = 693.33 wide, centred: (844 - 693.33) / 2 on each side.
  EXPECT_NEAR(l.video.x, 75.333, 1e-3);
  EXPECT_EQ(l.video.y, 0.0);
  EXPECT_NEAR(l.video.width, 693.333, 1e-3);
  EXPECT_EQ(l.video.height, 390.0);
  // From the right at 10, every 44 + 15.
  const double xs[] = {639.333, 580.333, 521.333, 462.333, 403.333, 344.333};
  for (int i = 0; i < 6; ++i) {
    EXPECT_NEAR(l.buttons[i].x, xs[i], 1e-3) << i;
    EXPECT_EQ(l.buttons[i].y, 5.0) << i;
  }
  EXPECT_EQ(l.bottomView.y, 390.0 - 15 - 44);
  EXPECT_NEAR(l.buttons[static_cast<int>(LiveButton::settings)].x, 521.333, 1e-3);
  EXPECT_EQ(l.lockCenterY, 331.0 + 22);  // on the snapshot button's line in landscape
  // Without a torch the wifi button takes its place.
  LiveLayout noTorch = liveLayout({.width = 844, .height = 390, .torchHidden = true});
  EXPECT_NEAR(noTorch.buttons[static_cast<int>(LiveButton::wifi)].x, 403.333, 1e-3);
  EXPECT_EQ(videoRectangle({.width = 1280, .height = 720}), (LiveRect{0, 0, 1280, 720}));
  // A 4:3 picture on a 16:9 landscape screen is inset left and right only.
  EXPECT_EQ(videoRectangle({.width = 1280, .height = 720, .videoWidth = 640, .videoHeight = 480}),
            (LiveRect{160, 0, 960, 720}));
}

TEST(SignalTest, LevelFromTheEncodersShareOfTheConfiguredRateAndTheStatisticsLine) {
  struct Case {
    const char* name;
    int64_t encoder;
    double bandwidth;
    int64_t level;
  };
  // clang-format off
  const Case cases[] = {{"NothingSentIsZeroAtFullRate", 1000000, 0.0, 0},
                        {"HalfRateIsTwoNotThree", 500000, 1.0, 2},
                        {"JustAbove98Percent", 980400, 1.0, 5},
                        {"JustBelow98Percent", 980300, 1.0, 4},
                        {"AboveConfiguredIsCapped", 1200000, 1.0, 5},
                        {"FirstStepBy5Point1", 196100, 1.0, 1}};
  // clang-format on
  for (const auto& c : cases)
    EXPECT_EQ(signalLevel(c.encoder, 1000000, c.bandwidth), c.level) << c.name;
  // The statistics line: megabits of 1048576 bits, and the dropped total.
  LFLiveDebug info;
  info.currentBandwidth = 131072;  // bytes: 1 Mbit of 2^20 bits
  info.currentCapturedVideoCount = 30;
  EXPECT_EQ(statisticsLine(2097152, info), "2.00 → 1.00 Mbps, 30 fps");
  info.currentBandwidth = 125000;  // 1,000,000 bits
  info.dropFrame = 3;
  EXPECT_EQ(statisticsLine(1000000, info), "0.95 → 0.95 Mbps, 30 fps, 3 dropped");
}

TEST(BatteryIconTest, ClassesByLevelAndCharging) {
  const std::tuple<float, BatteryState, int> cases[] = {
      {0.79f, BatteryState::unplugged, 3}, {0.8f, BatteryState::unplugged, 4},
      {0.49f, BatteryState::unplugged, 2}, {0.2f, BatteryState::unplugged, 2},
      {0.19f, BatteryState::unplugged, 1}, {1.0f, BatteryState::charging, 0},
      {1.0f, BatteryState::full, 4}};
  for (const auto& [level, state, cls] : cases)
    EXPECT_EQ(batteryIconClass(level, state), cls) << level << " " << static_cast<int>(state);
}

TEST(FocusFractionTest, TouchToCameraFractions) {
  // A 16:9 output cut from a 4:3 camera format: a = 640/640, b = 360/480.
  const FocusGeometry cut{.viewWidth = 640,
                          .viewHeight = 360,
                          .videoWidth = 640,
                          .videoHeight = 360,
                          .formatWidth = 640,
                          .formatHeight = 480};
  auto with = [&](int64_t preset, bool mirror, bool landscape) {
    FocusGeometry g = cut;
    g.sessionPreset = preset;
    g.mirror = mirror;
    g.landscape = landscape;
    if (!landscape) std::swap(g.viewWidth, g.viewHeight), std::swap(g.videoWidth, g.videoHeight);
    return g;
  };
  struct Case {
    const char* name;
    double x, y;
    FocusGeometry geometry;
    double u, v;
  };
  // clang-format off
  const Case cases[] = {{"CentreStaysAtPreset0", 320, 180, cut, 0.5, 0.5},
                        {"CornerMovesInwardsAtPreset0", 0, 0, cut, 0.0, 0.125},
                        {"PortraitMovesTheOtherAxis", 0, 0, with(0, false, false), 0.125, 0.0},
                        {"Preset1HasNoCorrection", 0, 0, with(1, false, true), 0.0, 0.0},
                        {"MirrorTurnsOnlyX", 160, 90, with(1, true, true), 0.75, 0.25}};
  // clang-format on
  for (const auto& c : cases) {
    const FocusFraction f = focusFraction(c.x, c.y, c.geometry);
    EXPECT_NEAR(f.u, c.u, 1e-9) << c.name;
    EXPECT_NEAR(f.v, c.v, 1e-9) << c.name;
  }
}

TEST(GestureRulesTest, TapLockPinchAndDrag) {
  const std::pair<TapContext, TapAction> taps[] = {
      {{.aeafLock = 2, .customFocusSupported = true}, TapAction::none},
      {{.customFocusSupported = true, .customExposureSupported = true}, TapAction::focus},
      {{.customFocusSupported = true, .afLock = true, .customExposureSupported = true},
       TapAction::expose},
      {{.afLock = true, .customExposureSupported = true, .aeLock = true}, TapAction::none}};
  for (const auto& [context, action] : taps) EXPECT_EQ(tapAction(context), action);
  // The panel open at y 300: only taps above it and below the top strip count.
  EXPECT_TRUE(tapPassesPanel(true, -10, 60));
  EXPECT_FALSE(tapPassesPanel(true, -10, 49));
  EXPECT_FALSE(tapPassesPanel(true, 0, 300));

  EXPECT_EQ(nextAeafLock(0), 1);
  EXPECT_EQ(nextAeafLock(1), 2);
  EXPECT_EQ(nextAeafLock(2), 0);

  EXPECT_EQ(pinchZoom(0.1, 1.0, 4.0, 1.0), std::nullopt);  // raised to 1.0: unchanged
  EXPECT_EQ(pinchZoom(2.0, 1.5, 4.0, 1.0), 3.0);
  EXPECT_EQ(pinchZoom(5.0, 1.0, 4.0, 1.0), 4.0);
  EXPECT_EQ(pinchZoom(2.0, 1.0, 0.5, 0.7), 1.0);  // the lower bound comes last

  EXPECT_TRUE(dragClosesPanel(2, 0, 21));
  EXPECT_FALSE(dragClosesPanel(2, 5, 21));  // 4.2 is not above 5
  EXPECT_TRUE(dragClosesPanel(2, 4, 21));
  EXPECT_FALSE(dragClosesPanel(2, 0, -21));  // upwards
  EXPECT_FALSE(dragClosesPanel(2, 0, 20));
  EXPECT_FALSE(dragClosesPanel(1, 0, 30));  // only while changing
}

TEST(FocusSquareTest, ShrinkBlinkThenHideOrDim) {
  using P = CameraFocusSquare::Phase;
  struct Step {
    double at;
    P phase;
    double alpha;
  };
  // clang-format off
  const std::vector<std::pair<bool, std::vector<Step>>> sequences = {
      {true, {{0.19, P::shrinking, 1.0}, {0.21, P::blinking, 1.0}, {1.09, P::blinking, 1.0},
              {1.11, P::hidden, 1.0}}},  // blinks once, hides 0.5 s later
      {false, {{0.21, P::blinking, 1.0}, {2.39, P::blinking, 1.0}, {2.41, P::fading, 1.0},
               {2.91, P::dimmed, 0.4}, {60.0, P::dimmed, 0.4}}}};  // thrice, dims 1.0 s later
  // clang-format on
  for (const auto& [hideAtLast, steps] : sequences) {
    test::ManualMain env;
    const double start = env.clock().now();
    auto square = CameraFocusSquare::create(10, 20);
    square->animateFocusingAction(hideAtLast);
    EXPECT_EQ(square->state().scale, 2.0);
    for (const auto& step : steps) {
      env.advance(start + step.at - env.clock().now(), 0.001);
      EXPECT_EQ(square->state().phase, step.phase) << hideAtLast << " " << step.at;
      EXPECT_EQ(square->state().alpha, step.alpha) << hideAtLast << " " << step.at;
    }
  }
}

TEST(CameraAccessTest, ACameraTheUserMayNotOpenIsARefusalWithTheWayOut) {
  using Media = CameraAccess::Media;
  const CameraProblem refused{"/dev/video0", "Permission denied",
                              CameraError::permissionDenied("/dev/video0")};
  LinuxMediaAccess locked(std::make_shared<CameraSystem>(
      "v4l2", std::vector<std::shared_ptr<CaptureDevice>>{}, std::vector{refused}));
  EXPECT_EQ(locked.authorizationStatus(Media::video), CameraAccess::denied);
  EXPECT_EQ(locked.refusalReason(Media::video), refused.reason.message);
  EXPECT_EQ(LinuxMediaAccess(test::defaultVirtualCameraSystem()).authorizationStatus(Media::video),
            CameraAccess::authorized);
  EXPECT_EQ(LinuxMediaAccess(std::make_shared<CameraSystem>(
                                 "v4l2", std::vector<std::shared_ptr<CaptureDevice>>{}))
                .authorizationStatus(Media::video),
            -1);  // no camera at all: nothing to ask
}

TEST(IdleTimerTest, OneTimeOutPerIdlePeriodAndOnlyABeganTouchRestartsIt) {
  test::ManualMain env;
  auto timer = IdleTimer::create();
  int timeouts = 0;
  auto subscription = timer->addListener([&] { ++timeouts; });
  timer->sendEvent(false);  // the first event of any kind starts it
  env.advance(14.9);
  EXPECT_EQ(timeouts, 0);
  timer->sendEvent(false);  // a moving touch: no restart
  env.advance(0.2);
  EXPECT_EQ(timeouts, 1);
  env.advance(30.0);
  EXPECT_EQ(timeouts, 1);
  timer->sendEvent(true);
  env.advance(14.9);
  EXPECT_EQ(timeouts, 1);
  env.advance(0.2);
  EXPECT_EQ(timeouts, 2);
}

}  // namespace
}  // namespace oxelo
