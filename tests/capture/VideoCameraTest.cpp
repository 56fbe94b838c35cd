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

constexpr auto kBack = AVCaptureDevicePositionBack;
constexpr auto kFront = AVCaptureDevicePositionFront;

TEST(CameraRotationTest, ModeOfTheConversionDraw) {
  constexpr CameraMounting kPhoneBack = test::kPhoneBack, kPhoneFront = test::kPhoneFront,
                           kWebcam = test::kUsbWebcam;
  const struct {
    AVCaptureDevicePosition position;
    bool mirror;
    int64_t orientation;
    CameraMounting mounting;
    uint64_t mode;
  } cases[] = {
      // The phone the table was written for.
      {kBack, false, 4, kPhoneBack, 7},
      {kBack, true, 2, kPhoneBack, 7},
      {kFront, true, 1, kPhoneFront, 5},
      {kFront, false, 3, kPhoneFront, 7},
      {kBack, false, 0, kPhoneBack, 0},  // unknown orientation
      // A USB webcam does not turn with the device.
      {kBack, true, 3, kWebcam, 4},
      {kFront, false, 1, kWebcam, 0},
      {kBack, false, 3, {CameraFacing::external, 180}, 7},
      {kBack, true, 4, {CameraFacing::external, 90}, 6},
      // Built-in cameras whose sensors sit otherwise than the phone's.
      {kBack, false, 4, {CameraFacing::back, 0}, 2},
      {kFront, true, 1, {CameraFacing::front, 270}, 6},
  };
  for (const auto& c : cases)
    EXPECT_EQ(cameraRotationMode(c.position, c.mirror, c.orientation, c.mounting), c.mode)
        << c.position << (c.mirror ? " mirrored " : " ") << c.orientation << " "
        << c.mounting.sensorRotation;
}

// A camera on a scripted driver with a pass-through filter behind it that
// keeps each picture it draws.
class CameraHarness : public GPUImageVideoCameraDelegate {
 public:
  CameraHarness(AVCaptureDevicePosition position, CameraMounting mounting, int64_t orientation,
                bool mirror) {
    test::expectGlContext();
    cameras = test::scriptedCameras(position, mounting, {{64, 32, 30}}, &driver);
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

// Quadrant colours by letter: the primaries and white (RGBW), and four mixed ones (abcd).
Bgra colourOf(char letter) {
  const Bgra colours[] = {test::kRed,           test::kGreen,       test::kBlue,
                          test::kWhite,         {40, 90, 200, 255}, {220, 180, 30, 255},
                          {128, 128, 128, 255}, {20, 235, 60, 255}};
  return colours[std::string_view("RGBWabcd").find(letter)];
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
  ASSERT_EQ(std::pair(h.last->width(), h.last->height()), std::pair(c.width, c.height));
  for (int i = 0; i < 4; ++i) {
    const Bgra seen =
        pixelAt(*h.last, (i % 2 ? 3 : 1) * c.width / 4, (i / 2 ? 3 : 1) * c.height / 4);
    const Bgra want = colourOf(c.picture[i]);
    EXPECT_TRUE(test::near(seen, want, 2)) << "quadrant " << i << ": " << seen << ", want " << want;
  }
}

constexpr auto k601 = ColourMatrix::bt601;
constexpr auto k709 = ColourMatrix::bt709;
constexpr auto kFull = ColourRange::full;
constexpr auto kVideo = ColourRange::video;
constexpr CameraMounting kWebcam90{CameraFacing::external, 90};
const ConversionCase kFrames[] = {
    // Turned right: the sensor's top left goes to the top right.
    {"PhoneBackPortrait", kBack, test::kPhoneBack, 1, false, k601, kFull, "RGBW", 32, 64, "BRWG"},
    {"WebcamLandscapeMirror", kFront, test::kUsbWebcam, 3, true, k601, kFull, "RGBW", 64, 32,
     "GRWB"},
    // A sensor that needs a quarter turn to the left.
    {"WebcamSensor90", kBack, kWebcam90, 3, false, k601, kFull, "RGBW", 32, 64, "GWRB"},
    // What the camera stored for a colour comes back as that colour.
    {"Bt601Video", kBack, test::kUsbWebcam, 3, false, k601, kVideo, "abcd", 64, 32, "abcd"},
    {"Bt601Full", kBack, test::kUsbWebcam, 3, false, k601, kFull, "abcd", 64, 32, "abcd"},
    {"Bt709Video", kBack, test::kUsbWebcam, 3, false, k709, kVideo, "abcd", 64, 32, "abcd"},
};
INSTANTIATE_TEST_SUITE_P(Frames, CameraConversionTest, testing::ValuesIn(kFrames),
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
  EXPECT_EQ(std::pair(delegate->times, h.drawn.load()), std::pair(std::vector{1.0, 3.0}, 2));
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
  EXPECT_EQ(std::tuple(camera->cameraPosition(), camera->internalRotation()),
            std::tuple(kFront, 2u));
  EXPECT_FALSE(camera->selectCameraByPosition(kBack, AVCaptureDeviceTypeBuiltInDualCamera));
  EXPECT_EQ(camera->cameraPosition(), kFront);
  camera->selectCameraByIndex(2);  // the wide angle camera, found by its own type first
  EXPECT_EQ(std::tuple(camera->inputCamera()->deviceType(), camera->cameraPosition()),
            std::tuple(wide, kBack));
}

}  // namespace
}  // namespace oxelo
