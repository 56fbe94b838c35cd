#include <gtest/gtest.h>

#include <linux/videodev2.h>

#include <functional>
#include <map>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/camera/V4l2CameraBackend.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "tests/platform/CameraFakes.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using test::FakeV4l2Camera;
using Control = FakeV4l2Camera::Control;
using Controls = std::map<uint32_t, Control>;
using Writes = std::vector<std::pair<uint32_t, int32_t>>;

Control integer(int32_t minimum, int32_t maximum, int32_t value = 0) {
  return {V4L2_CTRL_TYPE_INTEGER, minimum, maximum, value};
}
Control boolean(int32_t value) { return {V4L2_CTRL_TYPE_BOOLEAN, 0, 1, value}; }
Control button() { return {V4L2_CTRL_TYPE_BUTTON, 0, 0, 0}; }
Control menu(std::vector<int64_t> indices, int32_t value) {
  auto low = static_cast<int32_t>(indices.front()), high = static_cast<int32_t>(indices.back());
  return {V4L2_CTRL_TYPE_MENU, low, high, value, std::move(indices)};
}
Control integerMenu(std::vector<int64_t> values, int32_t index) {
  auto last = static_cast<int32_t>(values.size()) - 1;
  return {V4L2_CTRL_TYPE_INTEGER_MENU, 0, last, index, std::move(values)};
}
Control readOnly(Control c) {
  c.flags = V4L2_CTRL_FLAG_READ_ONLY;
  return c;
}

// The fake camera with `controls`, opened as a device-model camera.
std::shared_ptr<CaptureDevice> open(const std::shared_ptr<FakeV4l2Camera>& fake,
                                    Controls controls) {
  fake->formats = {{V4L2_PIX_FMT_YUYV, {{4, 2}}}};
  fake->controls = std::move(controls);
  auto found = enumerateV4l2Camera(fake->path, V4l2Backend{fake, nullptr});
  return found.devices.empty() ? nullptr : found.devices[0];
}

using Change = std::function<bool(CaptureDevice&)>;

Change custom(CaptureTime duration, float iso) {
  return [=](CaptureDevice& d) { return d.setExposureModeCustomWithDurationISO(duration, iso); };
}
// White balance locked at the gains of a temperature, tint 0.
Change kelvin(float temperature) {
  return [=](CaptureDevice& d) {
    auto gains = d.deviceWhiteBalanceGainsForTemperatureAndTintValues({temperature, 0.0f});
    return d.setWhiteBalanceModeLockedWithDeviceWhiteBalanceGains(gains);
  };
}

// Controls of the UVC kind: exposure menu and time, gain with its automatic switch.
Controls uvcExposure(int32_t mode, int32_t autoGain) {
  return {
      {V4L2_CID_EXPOSURE_AUTO, menu({V4L2_EXPOSURE_MANUAL, V4L2_EXPOSURE_APERTURE_PRIORITY}, mode)},
      {V4L2_CID_AUTOGAIN, boolean(autoGain)},
      {V4L2_CID_EXPOSURE_ABSOLUTE, integer(3, 2047, 250)},
      {V4L2_CID_GAIN, integer(0, 255, 64)}};
}

// Writes in order; none: the change is refused and `supported` answers false.
struct ControlCase {
  const char* name;
  Controls controls;
  Change change;
  Writes writes;
  std::function<bool(const CaptureDevice&)> supported = nullptr;
};

class V4l2ControlTest : public testing::TestWithParam<ControlCase> {};

TEST_P(V4l2ControlTest, WritesTheControlsInTheirUnitsAutomaticOnesOffFirst) {
  const auto& c = GetParam();
  auto fake = std::make_shared<FakeV4l2Camera>();
  auto device = open(fake, c.controls);
  ASSERT_TRUE(device);
  ASSERT_TRUE(device->lockForConfiguration());
  fake->writes.clear();
  if (c.supported) {
    EXPECT_FALSE(c.supported(*device));
  }
  EXPECT_EQ(c.change(*device), !c.writes.empty());
  EXPECT_EQ(fake->writes, c.writes);
}

constexpr uint32_t kIso = V4L2_CID_ISO_SENSITIVITY, kIsoAuto = V4L2_CID_ISO_SENSITIVITY_AUTO;
constexpr uint32_t kPreset = V4L2_CID_AUTO_N_PRESET_WHITE_BALANCE;
constexpr uint32_t kTemperature = V4L2_CID_WHITE_BALANCE_TEMPERATURE;
constexpr uint32_t kLed = V4L2_CID_FLASH_LED_MODE, kZoom = V4L2_CID_ZOOM_ABSOLUTE;
constexpr uint32_t kBias = V4L2_CID_AUTO_EXPOSURE_BIAS;

using C = CaptureDevice&;
using D = const CaptureDevice&;
constexpr uint32_t kExposureAuto = V4L2_CID_EXPOSURE_AUTO, kTime = V4L2_CID_EXPOSURE_ABSOLUTE;
constexpr uint32_t kAutoWb = V4L2_CID_AUTO_WHITE_BALANCE, kFocusAuto = V4L2_CID_FOCUS_AUTO;
INSTANTIATE_TEST_SUITE_P(
    Changes, V4l2ControlTest,
    testing::Values(
        // 1/30 s is 333 steps of 100 us; the gain is the ISO scale.
        ControlCase{"CustomExposureEndsAutomaticExposureAndGain",
                    uvcExposure(3, 1),
                    custom(CaptureTime::make(1, 30), 128),
                    {{kExposureAuto, V4L2_EXPOSURE_MANUAL},
                     {V4L2_CID_AUTOGAIN, 0},
                     {kTime, 333},
                     {V4L2_CID_GAIN, 128}}},
        // The present 10 ms stays; ISO 390 is the 400 of the menu, index 2.
        ControlCase{"IsoMenuLeavesItsAutomaticModeFirst",
                    {{kExposureAuto, menu({V4L2_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL}, 0)},
                     {kTime, integer(1, 10000, 100)},
                     {kIso, integerMenu({100, 200, 400, 800}, 0)},
                     {kIsoAuto, menu({0, 1}, V4L2_ISO_SENSITIVITY_AUTO)}},
                    custom(AVCaptureExposureDurationCurrent, 390),
                    {{kExposureAuto, V4L2_EXPOSURE_MANUAL},
                     {kIsoAuto, V4L2_ISO_SENSITIVITY_MANUAL},
                     {kTime, 100},
                     {kIso, 2}}},
        ControlCase{"ContinuousExposureTurnsTheAutomaticControlsOn",
                    uvcExposure(1, 0),
                    [](C d) { return d.setExposureMode(2); },
                    {{kExposureAuto, V4L2_EXPOSURE_APERTURE_PRIORITY}, {V4L2_CID_AUTOGAIN, 1}}},
        // An older driver has only the automatic gain; locking holds the values in use.
        ControlCase{"LockedExposureOnAnAutogainDriverHoldsTheValuesInUse",
                    {{V4L2_CID_AUTOGAIN, boolean(1)},
                     {kTime, integer(1, 1000, 120)},
                     {V4L2_CID_GAIN, integer(0, 100, 30)}},
                    [](C d) { return d.setExposureMode(0); },
                    {{V4L2_CID_AUTOGAIN, 0}, {kTime, 120}, {V4L2_CID_GAIN, 30}}},
        ControlCase{"BiasInThousandthsOfAnEv",
                    {{kBias, integer(-4000, 4000)}},
                    [](C d) { return d.setExposureTargetBias(-0.7f); },
                    {{kBias, -700}}},
        ControlCase{"TemperatureAfterAutomaticWhiteBalanceEnds",
                    {{kAutoWb, boolean(1)}, {kTemperature, integer(2000, 6500, 4000)}},
                    kelvin(3000),
                    {{kAutoWb, 0}, {kTemperature, 3000}}},
        ControlCase{"TemperatureAfterTheNewerPresetMenuGoesManual",
                    {{kPreset, menu({0, 1, 2, 6}, V4L2_WHITE_BALANCE_AUTO)},
                     {kTemperature, integer(2000, 6500, 4000)}},
                    kelvin(5000),
                    {{kPreset, V4L2_WHITE_BALANCE_MANUAL}, {kTemperature, 5000}}},
        ControlCase{"ThePresetMenuTurnsAutomaticWhiteBalanceOn",
                    {{kPreset, menu({0, 1, 2, 6}, V4L2_WHITE_BALANCE_MANUAL)}},
                    [](C d) { return d.setWhiteBalanceMode(2); },
                    {{kPreset, V4L2_WHITE_BALANCE_AUTO}}},
        ControlCase{"OneTimeWhiteBalanceIsTheButtonWithAutomaticOff",
                    {{kAutoWb, boolean(1)}, {V4L2_CID_DO_WHITE_BALANCE, button()}},
                    [](C d) { return d.setWhiteBalanceMode(1); },
                    {{kAutoWb, 0}, {V4L2_CID_DO_WHITE_BALANCE, 1}}},
        // Lens 0.4 of 0..250.
        ControlCase{
            "LensPositionEndsAutomaticFocusAndAnyScanFirst",
            {{kFocusAuto, boolean(1)},
             {V4L2_CID_AUTO_FOCUS_STOP, button()},
             {V4L2_CID_FOCUS_ABSOLUTE, integer(0, 250, 50)}},
            [](C d) { return d.setFocusModeLockedWithLensPosition(0.4f); },
            {{kFocusAuto, 0}, {V4L2_CID_AUTO_FOCUS_STOP, 1}, {V4L2_CID_FOCUS_ABSOLUTE, 100}}},
        ControlCase{"OneTimeFocusStartsAScanAfterContinuousEnds",
                    {{kFocusAuto, boolean(1)}, {V4L2_CID_AUTO_FOCUS_START, button()}},
                    [](C d) { return d.setFocusMode(1); },
                    {{kFocusAuto, 0}, {V4L2_CID_AUTO_FOCUS_START, 1}}},
        ControlCase{"ContinuousFocus",
                    {{kFocusAuto, boolean(0)}},
                    [](C d) { return d.setFocusMode(2); },
                    {{kFocusAuto, 1}}},
        // 100..500 zooms 1x to 5x: 2.5x is 250.
        ControlCase{"ZoomFactorAlongTheControlsRange",
                    {{kZoom, integer(100, 500, 100)}},
                    [](C d) { return d.setVideoZoomFactor(2.5); },
                    {{kZoom, 250}}},
        ControlCase{"TorchLevelThenTheLedsTorchMode",
                    {{kLed, menu({0, 1, 2}, V4L2_FLASH_LED_MODE_NONE)},
                     {V4L2_CID_FLASH_TORCH_INTENSITY, integer(0, 100)}},
                    [](C d) { return d.setTorchModeOnWithLevel(0.6f); },
                    {{V4L2_CID_FLASH_TORCH_INTENSITY, 60}, {kLed, V4L2_FLASH_LED_MODE_TORCH}}},
        ControlCase{"TorchOffIsTheLedsNone",
                    {{kLed, menu({0, 1, 2}, V4L2_FLASH_LED_MODE_TORCH)}},
                    [](C d) { return d.setTorchMode(AVCaptureTorchModeOff); },
                    {{kLed, V4L2_FLASH_LED_MODE_NONE}}},
        ControlCase{"APlainIlluminatorIsAnOnOffTorch",
                    {{V4L2_CID_ILLUMINATORS_1, boolean(0)}},
                    [](C d) { return d.setTorchModeOnWithLevel(1.0f); },
                    {{V4L2_CID_ILLUMINATORS_1, 1}}},
        // Refused where a control is missing: focus without a position or a scan start.
        ControlCase{
            "FocusWithoutPositionOrScanStart",
            {{kFocusAuto, boolean(1)}},
            [](C d) { return d.setFocusModeLockedWithLensPosition(0.5f) || d.setFocusMode(1); },
            {},
            [](D d) {
              return d.isLockingFocusWithCustomLensPositionSupported() || d.isFocusModeSupported(1);
            }},
        ControlCase{
            "CustomExposureWithoutAManualMode",
            {{kExposureAuto, menu({V4L2_EXPOSURE_AUTO}, 0)}, {kTime, integer(3, 2047, 250)}},
            custom(CaptureTime::make(1, 30), AVCaptureISOCurrent),
            {},
            [](D d) { return d.isExposureModeSupported(3) || d.isExposureModeSupported(0); }},
        ControlCase{
            "IsoOnAReadOnlyGain",
            {{kTime, integer(3, 2047, 250)}, {V4L2_CID_GAIN, readOnly(integer(0, 255, 64))}},
            custom(AVCaptureExposureDurationCurrent, 100),
            {},
            [](D d) { return d.activeFormat()->maxISO > 0; }},
        ControlCase{"WhiteBalanceWithoutTemperatureOrButton",
                    {{kAutoWb, boolean(1)}},
                    [](C d) { return kelvin(4000)(d) || d.setWhiteBalanceMode(1); },
                    {},
                    [](D d) {
                      return d.isLockingWhiteBalanceWithCustomDeviceGainsSupported() ||
                             d.isWhiteBalanceModeSupported(1);
                    }},
        ControlCase{"GainsWhenThePresetMenuHasNoManualItem",
                    {{kPreset, menu({1, 6}, V4L2_WHITE_BALANCE_AUTO)},
                     {kTemperature, integer(2000, 6500, 4000)}},
                    kelvin(4000),
                    {},
                    [](D d) { return d.isLockingWhiteBalanceWithCustomDeviceGainsSupported(); }},
        ControlCase{"TorchOnAnLedThatOnlyFlashes",
                    {{kLed, menu({0, 1}, 0)}},
                    [](C d) { return d.setTorchModeOnWithLevel(1.0f); },
                    {},
                    [](D d) { return d.hasTorch(); }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(V4l2SettlingTest, OneTimeFocusLocksWhenTheScanIsNoLongerBusy) {
  auto fake = std::make_shared<FakeV4l2Camera>();
  auto device = open(fake, {{V4L2_CID_AUTO_FOCUS_START, button()},
                            {V4L2_CID_AUTO_FOCUS_STATUS, V4L2_AUTO_FOCUS_STATUS_BUSY}});
  ASSERT_TRUE(device);
  ASSERT_TRUE(device->lockForConfiguration());
  ASSERT_TRUE(device->setFocusMode(AVCaptureFocusModeAutoFocus));
  EXPECT_EQ(device->focusMode(), AVCaptureFocusModeAutoFocus);
  fake->controls[V4L2_CID_AUTO_FOCUS_STATUS].value = V4L2_AUTO_FOCUS_STATUS_REACHED;
  EXPECT_EQ(device->focusMode(), AVCaptureFocusModeLocked);
}

// Exposure and white balance after the metering time, focus after its scan; a mode set again
// starts again.
TEST(VirtualSettlingTest, OneTimeModesSettleIntoLockedOnTheClock) {
  test::ManualMain main;
  auto device = makeVirtualCamera(defaultVirtualCameras().front());
  ASSERT_TRUE(device->lockForConfiguration());
  ASSERT_TRUE(device->setFocusMode(1) && device->setExposureMode(1) &&
              device->setWhiteBalanceMode(2));
  auto modes = [&] {
    return std::tuple(device->focusMode(), device->exposureMode(), device->whiteBalanceMode());
  };
  const double start = main.clock().now(), again = start + kVirtualMeteringSeconds - 0.01;
  main.clock().set(again);
  EXPECT_EQ(modes(), std::tuple(1, 1, 2));
  ASSERT_TRUE(device->setWhiteBalanceMode(1));
  main.clock().set(start + kVirtualMeteringSeconds);
  EXPECT_EQ(modes(), std::tuple(1, 0, 1));
  main.clock().set(start + kVirtualFocusScanSeconds);
  EXPECT_EQ(modes(), std::tuple(0, 0, 1));
  main.clock().set(again + kVirtualMeteringSeconds);
  EXPECT_EQ(modes(), std::tuple(0, 0, 0));
}

}  // namespace
}  // namespace oxelo
