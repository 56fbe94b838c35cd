#include <gtest/gtest.h>

#include <linux/videodev2.h>
#include <fstream>

#include "platform/camera/CameraSystem.h"
#include "platform/camera/V4l2CameraBackend.h"
#include "platform/camera/V4l2Mapping.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

V4l2FrameInterval every(uint32_t numerator, uint32_t denominator) {
  return {numerator, denominator, numerator, denominator};
}

V4l2Control integer(uint32_t id, int64_t minimum, int64_t maximum, int64_t value = 0) {
  V4l2Control c;
  c.id = id;
  c.type = V4L2_CTRL_TYPE_INTEGER;
  c.minimum = minimum;
  c.maximum = maximum;
  c.value = value;
  return c;
}

V4l2Control menu(uint32_t id, std::vector<uint32_t> indices, uint32_t type = V4L2_CTRL_TYPE_MENU) {
  V4l2Control c;
  c.id = id;
  c.type = type;
  for (uint32_t i : indices) c.menu.push_back({i, static_cast<int64_t>(i), ""});
  c.minimum = indices.front();
  c.maximum = indices.back();
  return c;
}

// A typical USB webcam: YUYV at low rates, MJPEG fast, an H.264 stream
// that capture cannot take, and the usual UVC controls.
V4l2DeviceInfo webcam() {
  V4l2DeviceInfo info;
  info.path = "/dev/video0";
  info.driver = "uvcvideo";
  info.card = "HD Webcam C920";
  info.busInfo = "usb-0000:00:14.0-3";
  V4l2PixelFormat yuyv{V4L2_PIX_FMT_YUYV, "YUYV 4:2:2", {}};
  yuyv.sizes.push_back({1280, 720, {every(1, 10), every(1, 5)}});
  yuyv.sizes.push_back({640, 480, {every(1, 30), every(1, 15), every(1001, 30000)}});
  V4l2PixelFormat mjpeg{V4L2_PIX_FMT_MJPEG, "Motion-JPEG", {}};
  mjpeg.sizes.push_back({1280, 720, {every(1, 30)}});
  mjpeg.sizes.push_back({1920, 1080, {{1, 30, 1, 5}}});  // stepwise, 5 to 30
  V4l2PixelFormat h264{V4L2_PIX_FMT_H264, "H.264", {}};
  h264.sizes.push_back({3840, 2160, {every(1, 30)}});
  info.formats = {yuyv, mjpeg, h264};

  auto exposureAuto =
      menu(V4L2_CID_EXPOSURE_AUTO, {V4L2_EXPOSURE_MANUAL, V4L2_EXPOSURE_APERTURE_PRIORITY});
  exposureAuto.value = V4L2_EXPOSURE_APERTURE_PRIORITY;
  auto led = menu(V4L2_CID_FLASH_LED_MODE,
                  {V4L2_FLASH_LED_MODE_NONE, V4L2_FLASH_LED_MODE_FLASH, V4L2_FLASH_LED_MODE_TORCH});
  V4l2Control bias;
  bias.id = V4L2_CID_AUTO_EXPOSURE_BIAS;
  bias.type = V4L2_CTRL_TYPE_INTEGER_MENU;
  bias.menu = {{0, -2000, ""}, {1, 0, ""}, {2, 1500, ""}};
  info.controls = {exposureAuto,
                   integer(V4L2_CID_EXPOSURE_ABSOLUTE, 3, 2047, 250),
                   integer(V4L2_CID_GAIN, 0, 255, 64),
                   integer(V4L2_CID_FOCUS_AUTO, 0, 1, 1),
                   integer(V4L2_CID_FOCUS_ABSOLUTE, 0, 250, 50),
                   integer(V4L2_CID_AUTO_WHITE_BALANCE, 0, 1, 1),
                   integer(V4L2_CID_WHITE_BALANCE_TEMPERATURE, 2000, 6500, 4000),
                   integer(V4L2_CID_ZOOM_ABSOLUTE, 100, 500, 100),
                   integer(V4L2_CID_EXPOSURE_AUTO_PRIORITY, 0, 1, 0),
                   led,
                   bias};
  return info;
}

TEST(V4l2MappingTest, ConvertibleFormatsBecomeBothSubtypesInSizeOrder) {
  auto formats = mapV4l2Formats(webcam());
  struct Row {
    int width, height;
    const char* native;
    const char* subtype;
    std::vector<double> maxRates;
  };
  const std::vector<Row> expected = {
      {640, 480, "YUYV", "420v", {15, 30000.0 / 1001, 30}},
      {640, 480, "YUYV", "420f", {15, 30000.0 / 1001, 30}},
      {1280, 720, "YUYV", "420v", {5, 10}},
      {1280, 720, "YUYV", "420f", {5, 10}},
      {1280, 720, "MJPG", "420v", {30}},
      {1280, 720, "MJPG", "420f", {30}},
      {1920, 1080, "MJPG", "420v", {30}},
      {1920, 1080, "MJPG", "420f", {30}},
  };
  ASSERT_EQ(formats.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    const auto& f = formats[i];
    EXPECT_EQ(f.mediaType, "vide");
    EXPECT_EQ(f.width, expected[i].width) << i;
    EXPECT_EQ(f.height, expected[i].height) << i;
    EXPECT_EQ(f.nativePixelFormat, expected[i].native) << i;
    EXPECT_EQ(f.mediaSubType, expected[i].subtype) << i;
    ASSERT_EQ(f.videoSupportedFrameRateRanges.size(), expected[i].maxRates.size()) << i;
    for (size_t r = 0; r < expected[i].maxRates.size(); ++r) {
      EXPECT_DOUBLE_EQ(f.videoSupportedFrameRateRanges[r].maxFrameRate, expected[i].maxRates[r])
          << i << " " << r;
    }
    // Limits from the controls: gain 0..255 as ISO, 100 us steps, zoom 500 / 100.
    EXPECT_FLOAT_EQ(f.maxISO, 255) << i;
    EXPECT_EQ(f.minExposureDuration, CaptureTime::make(3, 10000)) << i;
    EXPECT_EQ(f.maxExposureDuration, CaptureTime::make(2047, 10000)) << i;
    EXPECT_DOUBLE_EQ(f.videoMaxZoomFactor, 5.0) << i;
  }
  // The stepwise interval is one range, 5 to 30 frames per second.
  const auto& stepwise = formats[7].videoSupportedFrameRateRanges[0];
  EXPECT_DOUBLE_EQ(stepwise.minFrameRate, 5);
  EXPECT_EQ(stepwise.minFrameDuration, CaptureTime::make(1, 30));
  EXPECT_EQ(stepwise.maxFrameDuration, CaptureTime::make(1, 5));
}

TEST(V4l2MappingTest, WritableControlsBecomeCapabilities) {
  auto c = mapV4l2Capabilities(webcam());
  EXPECT_EQ(c.focusModes, 0b101u);         // locked, continuous
  EXPECT_EQ(c.exposureModes, 0b1101u);     // locked, continuous, custom
  EXPECT_EQ(c.whiteBalanceModes, 0b101u);  // locked, continuous
  EXPECT_TRUE(c.lockingFocusWithCustomLensPosition);
  EXPECT_TRUE(c.lockingWhiteBalanceWithCustomDeviceGains);
  // 2000 K: red / blue = (2000 / 6500)^1.5, so blue = (6500 / 2000)^1.5 = 5.859 over red.
  EXPECT_NEAR(c.maxWhiteBalanceGain, 5.8590, 1e-3);
  EXPECT_FLOAT_EQ(c.minExposureTargetBias, -2.0f);
  EXPECT_FLOAT_EQ(c.maxExposureTargetBias, 1.5f);
  EXPECT_TRUE(c.torch);
  EXPECT_TRUE(c.lowLightBoost);
  EXPECT_FALSE(c.focusPointOfInterest);
  EXPECT_FALSE(c.exposurePointOfInterest);
  EXPECT_FALSE(c.smoothAutoFocus);

  // No controls, or only read-only ones: nothing to lock or light.
  auto readOnly = webcam();
  for (auto& control : readOnly.controls) control.flags |= V4L2_CTRL_FLAG_READ_ONLY;
  for (const auto& info : {V4l2DeviceInfo{}, readOnly}) {
    auto none = mapV4l2Capabilities(info);
    EXPECT_EQ(none.focusModes, 0b1u);
    EXPECT_EQ(none.exposureModes, 0b1u);
    EXPECT_FALSE(none.lockingFocusWithCustomLensPosition);
    EXPECT_FALSE(none.lockingWhiteBalanceWithCustomDeviceGains);
    EXPECT_FALSE(none.torch);
  }
}

TEST(V4l2MappingTest, DescriptionTakesCardBusAndPosition) {
  auto d = describeV4l2Device(webcam(), AVCaptureDevicePositionFront);
  EXPECT_EQ(d.localizedName, "HD Webcam C920");
  EXPECT_EQ(d.uniqueID, "v4l2:usb-0000:00:14.0-3");
  EXPECT_EQ(d.location, "/dev/video0");
  EXPECT_EQ(d.deviceType, AVCaptureDeviceTypeBuiltInWideAngleCamera);
  EXPECT_EQ(d.position, AVCaptureDevicePositionFront);
}

TEST(V4l2MappingTest, ControlValuesConvertBothWays) {
  auto focus = integer(V4L2_CID_FOCUS_ABSOLUTE, 0, 250);
  focus.step = 5;
  EXPECT_FLOAT_EQ(lensPositionFromFocus(focus, 0), 0.0f);
  EXPECT_FLOAT_EQ(lensPositionFromFocus(focus, 125), 0.5f);
  EXPECT_FLOAT_EQ(lensPositionFromFocus(focus, 250), 1.0f);
  EXPECT_EQ(focusFromLensPosition(focus, 0.5f), 125);
  EXPECT_EQ(focusFromLensPosition(focus, 0.515f), 130);  // 128.75 to the step of 5

  auto zoom = integer(V4L2_CID_ZOOM_ABSOLUTE, 100, 500);
  EXPECT_DOUBLE_EQ(zoomFactorFromV4l2(zoom, 100), 1.0);
  EXPECT_DOUBLE_EQ(zoomFactorFromV4l2(zoom, 300), 3.0);
  EXPECT_EQ(v4l2FromZoomFactor(zoom, 2.5), 250);
  auto fromZero = integer(V4L2_CID_ZOOM_ABSOLUTE, 0, 10);
  EXPECT_DOUBLE_EQ(maxZoomFactorOf(fromZero), 4.0);
  EXPECT_DOUBLE_EQ(zoomFactorFromV4l2(fromZero, 5), 2.5);
  EXPECT_DOUBLE_EQ(maxZoomFactorOf(integer(V4L2_CID_ZOOM_ABSOLUTE, 1, 1)), 1.0);

  auto exposure = integer(V4L2_CID_EXPOSURE_ABSOLUTE, 3, 2047);
  EXPECT_DOUBLE_EQ(exposureFromV4l2(333).seconds(), 0.0333);
  EXPECT_EQ(v4l2FromExposure(exposure, CaptureTime::make(1, 30)), 333);
  EXPECT_EQ(v4l2FromExposure(exposure, CaptureTime::make(1, 100000)), 3);  // clamped up
  EXPECT_EQ(v4l2FromExposure(exposure, CaptureTime::make(1, 1)), 2047);    // clamped down

  V4l2Control iso;
  iso.type = V4L2_CTRL_TYPE_INTEGER_MENU;
  iso.menu = {{0, 100, ""}, {1, 200, ""}, {2, 400, ""}, {3, 800, ""}};
  EXPECT_EQ(nearestMenuIndex(iso, 290), 1u);
  EXPECT_EQ(nearestMenuIndex(iso, 5000), 3u);
}

TEST(V4l2MappingTest, PositionFromDriverThenPlacement) {
  auto info = webcam();
  EXPECT_EQ(reportedV4l2Position(info), AVCaptureDevicePositionUnspecified);
  info.placement = "back";
  EXPECT_EQ(reportedV4l2Position(info), AVCaptureDevicePositionBack);
  auto orientation = integer(V4L2_CID_CAMERA_ORIENTATION, 0, 2, V4L2_CAMERA_ORIENTATION_FRONT);
  info.controls.push_back(orientation);
  EXPECT_EQ(reportedV4l2Position(info), AVCaptureDevicePositionFront);  // the driver wins
  info.controls.back().value = V4L2_CAMERA_ORIENTATION_EXTERNAL;
  EXPECT_EQ(reportedV4l2Position(info), AVCaptureDevicePositionBack);  // placement then
}

struct PositionCase {
  const char* name;
  std::vector<AVCaptureDevicePosition> reported, assigned;
};

class V4l2PositionTest : public testing::TestWithParam<PositionCase> {};

TEST_P(V4l2PositionTest, UnknownCamerasFillTheBackFirst) {
  EXPECT_EQ(assignV4l2Positions(GetParam().reported), GetParam().assigned);
}

constexpr auto kNone = AVCaptureDevicePositionUnspecified;
constexpr auto kBack = AVCaptureDevicePositionBack;
constexpr auto kFront = AVCaptureDevicePositionFront;

INSTANTIATE_TEST_SUITE_P(
    Cameras, V4l2PositionTest,
    testing::Values(PositionCase("OneUnknownIsTheBack", {kNone}, {kBack}),
                    PositionCase("TwoUnknown", {kNone, kNone}, {kBack, kFront}),
                    PositionCase("AReportedBackComesFirst", {kNone, kBack}, {kFront, kBack}),
                    PositionCase("AReportedFrontLeavesTheBack", {kFront, kNone}, {kFront, kBack}),
                    PositionCase("ThreeUnknown", {kNone, kNone, kNone}, {kBack, kFront, kFront})),
    [](const auto& info) { return std::string(info.param.name); });

TEST(V4l2MappingTest, FacingAndRotationComeFromTheControlsElseAPlacementOffUsb) {
  constexpr auto kExternal = CameraFacing::external, kBack = CameraFacing::back;
  constexpr int kNo = -1;  // no such control
  const struct {
    const char *bus, *placement;
    int orientation, rotation;
    CameraMounting expected;
  } rows[] = {
      {"usb-0000:00:14.0-1", "", kNo, kNo, {kExternal, 0}},
      {"platform:cam", "back", kNo, kNo, {kBack, 0}},
      {"usb-1", "front", kNo, kNo, {kExternal, 0}},
      {"platform:cam", "front", V4L2_CAMERA_ORIENTATION_BACK, 90, {kBack, 90}},
      {"usb-2", "", V4L2_CAMERA_ORIENTATION_EXTERNAL, 180, {kExternal, 180}},
      {"platform:cam", "", kNo, 100, {kExternal, 90}},  // to quarter turns
  };
  for (const auto& row : rows) {
    V4l2DeviceInfo info;
    info.busInfo = row.bus;
    info.placement = row.placement;
    if (row.orientation != kNo)
      info.controls.push_back(integer(V4L2_CID_CAMERA_ORIENTATION, 0, 2, row.orientation));
    if (row.rotation != kNo)
      info.controls.push_back(integer(V4L2_CID_CAMERA_SENSOR_ROTATION, 0, 360, row.rotation));
    EXPECT_EQ(v4l2Mounting(info), row.expected) << row.bus << " " << row.placement;
  }
}

TEST(V4l2MappingTest, FrameColourFollowsTheFormatsColourFields) {
  constexpr auto kBt601 = ColourMatrix::bt601, kBt709 = ColourMatrix::bt709;
  constexpr auto kVideo = ColourRange::video, kFull = ColourRange::full;
  constexpr uint32_t kEnc = V4L2_YCBCR_ENC_DEFAULT, kQuant = V4L2_QUANTIZATION_DEFAULT;
  const struct {
    uint32_t colorspace, encoding, quantization;
    ColourMatrix matrix;
    ColourRange range;
  } rows[] = {
      {V4L2_COLORSPACE_DEFAULT, kEnc, kQuant, kBt601, kVideo},
      {V4L2_COLORSPACE_JPEG, kEnc, kQuant, kBt601, kFull},
      {V4L2_COLORSPACE_REC709, V4L2_YCBCR_ENC_601, V4L2_QUANTIZATION_FULL_RANGE, kBt601, kFull},
      {V4L2_COLORSPACE_BT2020, kEnc, V4L2_QUANTIZATION_LIM_RANGE, kBt709, kVideo},
  };
  for (const auto& row : rows) {
    auto colour = v4l2FrameColour(row.colorspace, row.encoding, row.quantization);
    EXPECT_EQ(colour.matrix, row.matrix) << row.colorspace << " " << row.encoding;
    EXPECT_EQ(colour.range, row.range) << row.colorspace << " " << row.quantization;
  }
}

// Runs against the machine's own cameras; skipped where there are none.
TEST(V4l2EnumerationTest, EnumeratesTheMachinesCameras) {
  auto nodes = listVideoNodes();
  if (nodes.empty()) GTEST_SKIP() << "no /dev/video* node on this machine: nothing to enumerate";
  auto found = enumerateV4l2Cameras();
  for (const auto& p : found.problems) {
    EXPECT_FALSE(p.location.empty());
    EXPECT_FALSE(p.error.empty()) << p.location;
  }
  for (const auto& d : found.devices) {
    SCOPED_TRACE(d->location());
    EXPECT_EQ(d->uniqueID().rfind("v4l2:", 0), 0u);
    EXPECT_TRUE(d->position() == AVCaptureDevicePositionBack ||
                d->position() == AVCaptureDevicePositionFront);
    ASSERT_FALSE(d->formats().empty());
    for (const auto& f : d->formats()) {
      EXPECT_GT(f->width, 0);
      EXPECT_GT(f->height, 0);
      EXPECT_TRUE(f->mediaSubType == "420f" || f->mediaSubType == "420v");
      EXPECT_FALSE(f->nativePixelFormat.empty());
    }
    EXPECT_TRUE(d->lockForConfiguration());
    d->unlockForConfiguration();
  }
  std::string error;
  auto system = CameraSystem::open("v4l2", error);
  EXPECT_EQ(system != nullptr, !found.devices.empty()) << error;
}

TEST(V4l2EnumerationTest, ListsOnlyNumberedVideoNodesInNumberOrder) {
  test::TempDir dir;
  for (const char* name : {"video10", "video2", "video", "videox", "media0", "video0"})
    std::ofstream(dir.path() / name) << "";
  auto node = [&](const char* name) { return (dir.path() / name).string(); };
  EXPECT_EQ(listVideoNodes(dir.path()),
            (std::vector<std::string>{node("video0"), node("video2"), node("video10")}));
  // A folder without nodes finds nothing, and no problem either.
  std::filesystem::create_directory(dir.path() / "empty");
  auto found = enumerateV4l2Cameras(dir.path() / "empty");
  EXPECT_TRUE(found.devices.empty());
  EXPECT_TRUE(found.problems.empty());
}

}  // namespace
}  // namespace oxelo
