// The camera input: the rotation of its conversion draw, the colour of the
// converted picture, frame dropping and the choice of cameras.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <future>

#include "capture/GPUImageVideoCamera.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/LFGPUImageEmptyFilter.h"
#include "tests/capture/support/PictureChecks.h"
#include "tests/capture/support/ScriptedCamera.h"
#include "tests/support/CameraTestSupport.h"

namespace oxelo {
namespace {

using test::Bgra;
using test::pixelAt;

struct RotationCase {
  const char* name;
  AVCaptureDevicePosition position;
  bool mirror;
  int64_t orientation;
  CameraMounting mounting;
  uint64_t mode;
};
class CameraRotationTest : public testing::TestWithParam<RotationCase> {};

TEST_P(CameraRotationTest, ModeOfTheConversionDraw) {
  const auto& c = GetParam();
  EXPECT_EQ(cameraRotationMode(c.position, c.mirror, c.orientation, c.mounting), c.mode);
}

constexpr auto kBack = AVCaptureDevicePositionBack;
constexpr auto kFront = AVCaptureDevicePositionFront;
INSTANTIATE_TEST_SUITE_P(
    Mountings, CameraRotationTest,
    testing::Values(
        // The phone the table was written for.
        RotationCase{"BackLandscapeLeft", kBack, false, 4, test::kPhoneBack, 7},
        RotationCase{"BackMirrorUpsideDown", kBack, true, 2, test::kPhoneBack, 7},
        RotationCase{"FrontMirrorPortrait", kFront, true, 1, test::kPhoneFront, 5},
        RotationCase{"FrontLandscapeRight", kFront, false, 3, test::kPhoneFront, 7},
        RotationCase{"UnknownOrientation", kBack, false, 0, test::kPhoneBack, 0},
        // A USB webcam does not turn with the device.
        RotationCase{"WebcamLandscapeMirror", kBack, true, 3, test::kUsbWebcam, 4},
        RotationCase{"WebcamPortrait", kFront, false, 1, test::kUsbWebcam, 0},
        RotationCase{"WebcamUpsideDown", kBack, false, 3, {CameraFacing::external, 180}, 7},
        RotationCase{"WebcamQuarterMirror", kBack, true, 4, {CameraFacing::external, 90}, 6},
        // Built-in cameras whose sensors sit otherwise than the phone's.
        RotationCase{"BackSensor0LandscapeLeft", kBack, false, 4, {CameraFacing::back, 0}, 2},
        RotationCase{
            "FrontSensor270MirrorPortrait", kFront, true, 1, {CameraFacing::front, 270}, 6}),
    [](const auto& info) { return std::string(info.param.name); });

// A camera on a scripted driver with a pass-through filter behind it that
// keeps each picture it draws.
class CameraHarness : public GPUImageVideoCameraDelegate {
 public:
  CameraHarness(AVCaptureDevicePosition position, CameraMounting mounting, int64_t orientation,
                bool mirror) {
    test::expectGlContext();
    auto device = test::scriptedCamera("scripted", AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                       position, mounting, {{64, 32, 30}}, &driver);
    cameras = std::make_shared<CameraSystem>("scripted", std::vector{device});
    camera = GPUImageVideoCamera::create(AVCaptureSessionPresetHigh, position, cameras);
    if (!camera) return;
    camera->setOutputImageOrientation(orientation);
    camera->setHorizontallyMirrorFrontFacingCamera(mirror);
    camera->setHorizontallyMirrorRearFacingCamera(mirror);
    camera->addTarget(sink);
    sink->setFrameProcessingCompletionBlock([this](GPUImageOutput* output, double) {
      last = output->framebufferForOutput()->pixelBuffer();
      ++drawn;
    });
  }
  ~CameraHarness() override {
    if (camera) camera->removeAllTargets();
    sink->setFrameProcessingCompletionBlock(nullptr);
  }
  // Delivers and waits until the video processing queue has taken it.
  void deliverAndSettle(const CameraFramePtr& frame) {
    driver->deliver(frame);
    runSynchronouslyOnVideoProcessingQueue([] {});
  }

  test::ScriptedDriver* driver = nullptr;
  std::shared_ptr<CameraSystem> cameras;
  std::shared_ptr<GPUImageVideoCamera> camera;
  std::shared_ptr<LFGPUImageEmptyFilter> sink = std::make_shared<LFGPUImageEmptyFilter>();
  std::shared_ptr<PixelBuffer> last;
  std::atomic<int> drawn{0};
};

// Quadrant colours by letter: the primaries and white, and four mixed ones.
Bgra colourOf(char letter) {
  switch (letter) {
    case 'R':
      return test::kRed;
    case 'G':
      return test::kGreen;
    case 'B':
      return test::kBlue;
    case 'W':
      return test::kWhite;
    case 'a':
      return {40, 90, 200, 255};
    case 'b':
      return {220, 180, 30, 255};
    case 'c':
      return {128, 128, 128, 255};
    default:
      return {20, 235, 60, 255};
  }
}

struct ConversionCase {
  const char* name;
  AVCaptureDevicePosition position;
  CameraMounting mounting;
  int64_t orientation;
  bool mirror;
  ColourMatrix matrix;
  ColourRange range;
  const char* sensor;   // quadrants as the sensor sees them: top left, top right, ...
  int width, height;    // of the converted picture
  const char* picture;  // its quadrants
};
class CameraConversionTest : public testing::TestWithParam<ConversionCase> {};

// A 64 x 32 frame of four quadrants: each colour lands, within 2 of 255,
// where the rotation mode turns it.
TEST_P(CameraConversionTest, QuadrantsLandTurnedAndInTheirColours) {
  const auto& c = GetParam();
  CameraHarness h(c.position, c.mounting, c.orientation, c.mirror);
  ASSERT_TRUE(h.camera);
  h.camera->startCameraCapture();
  h.deliverAndSettle(test::nv12Frame(64, 32, c.matrix, c.range, 1.0, [&](int x, int y) {
    return colourOf(c.sensor[(y >= 16 ? 2 : 0) + (x >= 32)]);
  }));
  ASSERT_TRUE(h.last);
  ASSERT_EQ(h.last->width(), c.width);
  ASSERT_EQ(h.last->height(), c.height);
  for (int i = 0; i < 4; ++i) {
    const Bgra seen =
        pixelAt(*h.last, (i % 2 ? 3 : 1) * c.width / 4, (i / 2 ? 3 : 1) * c.height / 4);
    const Bgra want = colourOf(c.picture[i]);
    EXPECT_TRUE(std::abs(seen.r - want.r) <= 2 && std::abs(seen.g - want.g) <= 2 &&
                std::abs(seen.b - want.b) <= 2)
        << "quadrant " << i << ": " << seen << ", want " << want;
  }
}

constexpr auto k601 = ColourMatrix::bt601;
constexpr auto k709 = ColourMatrix::bt709;
constexpr auto kFull = ColourRange::full;
constexpr auto kVideo = ColourRange::video;
constexpr CameraMounting kWebcam90{CameraFacing::external, 90};
INSTANTIATE_TEST_SUITE_P(Frames, CameraConversionTest,
                         testing::Values(
                             // Turned right: the sensor's top left goes to the top right.
                             ConversionCase{"PhoneBackPortrait", kBack, test::kPhoneBack, 1, false,
                                            k601, kFull, "RGBW", 32, 64, "BRWG"},
                             ConversionCase{"WebcamLandscapeMirror", kFront, test::kUsbWebcam, 3,
                                            true, k601, kFull, "RGBW", 64, 32, "GRWB"},
                             // A sensor that needs a quarter turn to the left.
                             ConversionCase{"WebcamSensor90", kBack, kWebcam90, 3, false, k601,
                                            kFull, "RGBW", 32, 64, "GWRB"},
                             // What the camera stored for a colour comes back as that colour.
                             ConversionCase{"Bt601Video", kBack, test::kUsbWebcam, 3, false, k601,
                                            kVideo, "abcd", 64, 32, "abcd"},
                             ConversionCase{"Bt601Full", kBack, test::kUsbWebcam, 3, false, k601,
                                            kFull, "abcd", 64, 32, "abcd"},
                             ConversionCase{"Bt709Video", kBack, test::kUsbWebcam, 3, false, k709,
                                            kVideo, "abcd", 64, 32, "abcd"}),
                         [](const auto& info) { return std::string(info.param.name); });

// Holds the video processing queue in the delegate call of the first frame
// until the gate opens.
struct GateDelegate : GPUImageVideoCameraDelegate {
  void willOutputSampleBuffer(const CameraFramePtr& frame) override {
    times.push_back(frame->presentationTime);
    if (times.size() > 1) return;
    entered.set_value();
    gate.wait();
  }
  std::vector<double> times;  // video processing queue
  std::promise<void> entered;
  std::shared_future<void> gate;
};

TEST(VideoCameraTest, FrameArrivingWhileOneIsInWorkIsDropped) {
  CameraHarness h(kBack, test::kPhoneBack, 1, false);
  ASSERT_TRUE(h.camera);
  auto delegate = std::make_shared<GateDelegate>();
  std::promise<void> open;
  delegate->gate = open.get_future().share();
  h.camera->setDelegate(delegate);
  const auto frame = [](double time) {
    return test::nv12Frame(64, 32, k601, kFull, time, [](int, int) { return test::kRed; });
  };
  h.camera->startCameraCapture();
  ASSERT_TRUE(h.driver->deliver(frame(1.0)));
  ASSERT_EQ(delegate->entered.get_future().wait_for(std::chrono::seconds(10)),
            std::future_status::ready);
  h.driver->deliver(frame(2.0));  // the first is still in work
  open.set_value();
  runSynchronouslyOnVideoProcessingQueue([] {});  // the first is done
  h.deliverAndSettle(frame(3.0));
  EXPECT_EQ(delegate->times, (std::vector<double>{1.0, 3.0}));
  EXPECT_EQ(h.drawn, 2);
  // Paused: the delegate still hears of the frame, nothing is drawn.
  h.camera->pauseCameraCapture();
  h.deliverAndSettle(frame(4.0));
  EXPECT_EQ(delegate->times.size(), 3u);
  h.camera->resumeCameraCapture();
  h.deliverAndSettle(frame(5.0));
  EXPECT_EQ(h.drawn, 3);
}

TEST(VideoCameraTest, RotateCameraStepsThroughTheBackCamerasFirst) {
  test::CameraAndSettings env(test::defaultVirtualCameraSystem());
  test::expectGlContext();
  auto camera = GPUImageVideoCamera::create(AVCaptureSessionPreset1280x720, kBack);
  ASSERT_TRUE(camera);
  std::vector<std::string> seen;
  for (int i = 0; i < 5; ++i) {
    seen.push_back(camera->inputCamera()->deviceType() +
                   (camera->cameraPosition() == kFront ? " front" : ""));
    camera->rotateCamera();
  }
  const std::string wide = AVCaptureDeviceTypeBuiltInWideAngleCamera;
  EXPECT_EQ(seen, (std::vector<std::string>{wide, AVCaptureDeviceTypeBuiltInTelephotoCamera,
                                            wide + " front",
                                            AVCaptureDeviceTypeBuiltInUltraWideCamera, wide}));
  // The front camera's own table: portrait, unmirrored.
  camera->setOutputImageOrientation(1);
  camera->selectCameraByIndex(0);
  EXPECT_EQ(camera->cameraPosition(), kFront);
  EXPECT_EQ(camera->internalRotation(), 2u);
  EXPECT_FALSE(camera->selectCameraByPosition(kBack, AVCaptureDeviceTypeBuiltInDualCamera));
  EXPECT_EQ(camera->cameraPosition(), kFront);
  // Index 2 falls on the wide angle camera, found by its own type first.
  camera->selectCameraByIndex(2);
  EXPECT_EQ(camera->inputCamera()->deviceType(), AVCaptureDeviceTypeBuiltInWideAngleCamera);
  EXPECT_EQ(camera->cameraPosition(), kBack);
}

}  // namespace
}  // namespace oxelo
