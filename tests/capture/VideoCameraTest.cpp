// The camera input: the rotation of its conversion draw, the colour of the
// converted picture, frame dropping and the choice of cameras.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "capture/GPUImageVideoCamera.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/LFGPUImageEmptyFilter.h"
#include "platform/defaults/SettingsKeys.h"
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
        RotationCase{"BackLandscapeRight", kBack, false, 3, test::kPhoneBack, 0},
        RotationCase{"BackLandscapeLeft", kBack, false, 4, test::kPhoneBack, 7},
        RotationCase{"BackPortrait", kBack, false, 1, test::kPhoneBack, 2},
        RotationCase{"BackMirrorUpsideDown", kBack, true, 2, test::kPhoneBack, 7},
        RotationCase{"FrontMirrorPortrait", kFront, true, 1, test::kPhoneFront, 5},
        RotationCase{"FrontLandscapeRight", kFront, false, 3, test::kPhoneFront, 7},
        RotationCase{"UnknownOrientation", kBack, false, 0, test::kPhoneBack, 0},
        // A USB webcam does not turn with the device.
        RotationCase{"WebcamLandscape", kBack, false, 3, test::kUsbWebcam, 0},
        RotationCase{"WebcamLandscapeMirror", kBack, true, 3, test::kUsbWebcam, 4},
        RotationCase{"WebcamPortrait", kFront, false, 1, test::kUsbWebcam, 0},
        RotationCase{"WebcamUpsideDown", kBack, false, 3, {CameraFacing::external, 180}, 7},
        RotationCase{"WebcamQuarterMirror", kBack, true, 4, {CameraFacing::external, 90}, 6},
        // Built-in cameras whose sensors sit otherwise than the phone's.
        RotationCase{"BackSensor90Portrait", kBack, false, 1, {CameraFacing::back, 90}, 1},
        RotationCase{"BackSensor0LandscapeLeft", kBack, false, 4, {CameraFacing::back, 0}, 2},
        RotationCase{"FrontSensor90MirrorPortrait", kFront, true, 1, {CameraFacing::front, 90}, 6}),
    [](const auto& info) { return std::string(info.param.name); });

// An NV12 frame of four quadrants, as the sensor sees them.
CameraFramePtr quadrantFrame(int width, int height, const std::array<Bgra, 4>& colours,
                             ColourMatrix matrix, ColourRange range, double time) {
  auto frame = CameraFrame::make(width, height);
  frame->matrix = matrix;
  frame->range = range;
  frame->presentationTime = time;
  auto quadrant = [&](int x, int y) {
    const Bgra& c = colours[static_cast<size_t>((y >= height / 2 ? 2 : 0) + (x >= width / 2))];
    return ycbcrOf(c.r, c.g, c.b, matrix, range);
  };
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) frame->row(0, y)[x] = quadrant(x, y).y;
  for (int y = 0; y < frame->chromaHeight(); ++y)
    for (int x = 0; x < frame->chromaWidth(); ++x) {
      const YCbCr v = quadrant(2 * x, 2 * y);
      frame->row(1, y)[2 * x] = v.cb;
      frame->row(1, y)[2 * x + 1] = v.cr;
    }
  return frame;
}

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

constexpr Bgra kRed{0, 0, 255, 255}, kGreen{0, 255, 0, 255}, kBlue{255, 0, 0, 255},
    kWhite{255, 255, 255, 255};

struct PictureCase {
  const char* name;
  AVCaptureDevicePosition position;
  CameraMounting mounting;
  int64_t orientation;
  bool mirror;
  int width, height;              // of the converted picture
  std::array<Bgra, 4> quadrants;  // top left, top right, bottom left, bottom right
};
class CameraPictureTest : public testing::TestWithParam<PictureCase> {};

TEST_P(CameraPictureTest, CornersLandWhereTheModeTurnsThem) {
  const auto& c = GetParam();
  CameraHarness h(c.position, c.mounting, c.orientation, c.mirror);
  ASSERT_TRUE(h.camera);
  h.camera->startCameraCapture();
  h.deliverAndSettle(quadrantFrame(64, 32, {kRed, kGreen, kBlue, kWhite}, ColourMatrix::bt601,
                                   ColourRange::full, 1.0));
  ASSERT_TRUE(h.last);
  ASSERT_EQ(h.last->width(), c.width);
  ASSERT_EQ(h.last->height(), c.height);
  const int qx = c.width / 4, qy = c.height / 4;
  const Bgra seen[4] = {pixelAt(*h.last, qx, qy), pixelAt(*h.last, 3 * qx, qy),
                        pixelAt(*h.last, qx, 3 * qy), pixelAt(*h.last, 3 * qx, 3 * qy)};
  for (int i = 0; i < 4; ++i) {
    const Bgra& want = c.quadrants[static_cast<size_t>(i)];
    EXPECT_NEAR(seen[i].r, want.r, 2) << "quadrant " << i << " " << seen[i];
    EXPECT_NEAR(seen[i].g, want.g, 2) << "quadrant " << i << " " << seen[i];
    EXPECT_NEAR(seen[i].b, want.b, 2) << "quadrant " << i << " " << seen[i];
  }
}

INSTANTIATE_TEST_SUITE_P(Turns, CameraPictureTest,
                         testing::Values(
                             // Turned right: the sensor's top left goes to the top right.
                             PictureCase{"PhoneBackPortrait",
                                         kBack,
                                         test::kPhoneBack,
                                         1,
                                         false,
                                         32,
                                         64,
                                         {kBlue, kRed, kWhite, kGreen}},
                             PictureCase{"WebcamLandscape",
                                         kBack,
                                         test::kUsbWebcam,
                                         3,
                                         false,
                                         64,
                                         32,
                                         {kRed, kGreen, kBlue, kWhite}},
                             PictureCase{"WebcamLandscapeMirror",
                                         kFront,
                                         test::kUsbWebcam,
                                         3,
                                         true,
                                         64,
                                         32,
                                         {kGreen, kRed, kWhite, kBlue}},
                             // A sensor that needs a quarter turn to the left.
                             PictureCase{"WebcamSensor90",
                                         kBack,
                                         {CameraFacing::external, 90},
                                         3,
                                         false,
                                         32,
                                         64,
                                         {kGreen, kWhite, kRed, kBlue}}),
                         [](const auto& info) { return std::string(info.param.name); });

struct ColourCase {
  const char* name;
  ColourMatrix matrix;
  ColourRange range;
};
class CameraColourTest : public testing::TestWithParam<ColourCase> {};

// What the camera stored for a colour comes back as that colour.
TEST_P(CameraColourTest, ConvertsToTheColourTheCameraSaw) {
  const auto& c = GetParam();
  CameraHarness h(kBack, test::kUsbWebcam, 3, false);
  ASSERT_TRUE(h.camera);
  h.camera->startCameraCapture();
  const std::array<Bgra, 4> colours = {Bgra{40, 90, 200, 255}, Bgra{220, 180, 30, 255},
                                       Bgra{128, 128, 128, 255}, Bgra{20, 235, 60, 255}};
  h.deliverAndSettle(quadrantFrame(64, 32, colours, c.matrix, c.range, 1.0));
  ASSERT_TRUE(h.last);
  const Bgra seen[4] = {pixelAt(*h.last, 16, 8), pixelAt(*h.last, 48, 8), pixelAt(*h.last, 16, 24),
                        pixelAt(*h.last, 48, 24)};
  for (int i = 0; i < 4; ++i) {
    const Bgra& want = colours[static_cast<size_t>(i)];
    EXPECT_NEAR(seen[i].r, want.r, 2) << "colour " << i << " " << seen[i];
    EXPECT_NEAR(seen[i].g, want.g, 2) << "colour " << i << " " << seen[i];
    EXPECT_NEAR(seen[i].b, want.b, 2) << "colour " << i << " " << seen[i];
  }
}

INSTANTIATE_TEST_SUITE_P(
    Matrices, CameraColourTest,
    testing::Values(ColourCase{"Bt601Video", ColourMatrix::bt601, ColourRange::video},
                    ColourCase{"Bt601Full", ColourMatrix::bt601, ColourRange::full},
                    ColourCase{"Bt709Video", ColourMatrix::bt709, ColourRange::video}),
    [](const auto& info) { return std::string(info.param.name); });

// Holds the video processing queue inside the delegate call of the first
// frame until released.
class BlockingDelegate : public GPUImageVideoCameraDelegate {
 public:
  void willOutputSampleBuffer(const CameraFramePtr& frame) override {
    std::unique_lock lock(mutex);
    times.push_back(frame->presentationTime);
    entered = true;
    changed.notify_all();
    changed.wait(lock, [&] { return released; });
  }
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<double> times;
  bool entered = false;
  bool released = false;
};

TEST(VideoCameraTest, FrameArrivingWhileOneIsInWorkIsDropped) {
  CameraHarness h(kBack, test::kPhoneBack, 1, false);
  ASSERT_TRUE(h.camera);
  auto delegate = std::make_shared<BlockingDelegate>();
  h.camera->setDelegate(delegate);
  const auto frame = [](double time) {
    return quadrantFrame(64, 32, {kRed, kGreen, kBlue, kWhite}, ColourMatrix::bt601,
                         ColourRange::full, time);
  };
  h.camera->startCameraCapture();
  ASSERT_TRUE(h.driver->deliver(frame(1.0)));
  {
    std::unique_lock lock(delegate->mutex);
    ASSERT_TRUE(delegate->changed.wait_for(lock, std::chrono::seconds(10),
                                           [&] { return delegate->entered; }));
  }
  h.driver->deliver(frame(2.0));  // the first is still in work
  {
    std::lock_guard lock(delegate->mutex);
    delegate->released = true;
    delegate->changed.notify_all();
  }
  runSynchronouslyOnVideoProcessingQueue([] {});
  h.deliverAndSettle(frame(3.0));
  EXPECT_EQ(delegate->times, (std::vector<double>{1.0, 3.0}));
  EXPECT_EQ(h.drawn, 2);
  // Paused: the delegate still hears of the frame, nothing is drawn.
  h.camera->pauseCameraCapture();
  h.deliverAndSettle(frame(4.0));
  EXPECT_EQ(delegate->times.size(), 3u);
  EXPECT_EQ(h.drawn, 2);
  h.camera->resumeCameraCapture();
  h.deliverAndSettle(frame(5.0));
  EXPECT_EQ(h.drawn, 3);
}

TEST(VideoCameraTest, FrameRateFixesTheTimingAndZeroGivesItBack) {
  CameraHarness h(kBack, test::kPhoneBack, 1, false);
  ASSERT_TRUE(h.camera);
  auto device = h.camera->inputCamera();
  h.camera->setFrameRate(24);
  EXPECT_EQ(device->activeVideoMinFrameDuration(), CaptureTime::make(1, 24));
  EXPECT_EQ(device->activeVideoMaxFrameDuration(), CaptureTime::make(1, 24));
  h.camera->setFrameRate(0);
  EXPECT_EQ(device->activeVideoMinFrameDuration(), CaptureTime::make(1, 30));
  EXPECT_EQ(h.camera->frameRate(), 0);
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
  EXPECT_EQ(seen, (std::vector<std::string>{
                      AVCaptureDeviceTypeBuiltInWideAngleCamera,
                      AVCaptureDeviceTypeBuiltInTelephotoCamera,
                      std::string(AVCaptureDeviceTypeBuiltInWideAngleCamera) + " front",
                      AVCaptureDeviceTypeBuiltInUltraWideCamera,
                      AVCaptureDeviceTypeBuiltInWideAngleCamera,
                  }));
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

TEST(VideoCameraTest, BackTypeSettingChoosesTheFirstCamera) {
  test::CameraAndSettings env(test::defaultVirtualCameraSystem());
  env.defaults().setInteger(keys::backCameraType, 3);
  test::expectGlContext();
  auto camera = GPUImageVideoCamera::create(AVCaptureSessionPreset1280x720, kBack);
  ASSERT_TRUE(camera);
  EXPECT_EQ(camera->inputCamera()->deviceType(), AVCaptureDeviceTypeBuiltInTripleCamera);
  EXPECT_FALSE(GPUImageVideoCamera::create("AVCaptureSessionPreset123x45", kBack));
}

}  // namespace
}  // namespace oxelo
