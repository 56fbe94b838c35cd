// The capture front: the choice of the camera's format, the crop of the
// chain, and pictures through the chain to the delegate.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <future>

#include "capture/LFVideoCapture.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/capture/support/PictureChecks.h"
#include "tests/capture/support/ScriptedCamera.h"
#include "tests/support/CameraTestSupport.h"

namespace oxelo {
namespace {

using test::Bgra;
using test::near;
using test::pixelAt;
using test::ScriptedFormat;

// "1280x720@60,1920x1080@30v": sizes with their highest rate; "v" marks a
// video-range format.
std::vector<CaptureDeviceFormatPtr> formatsOf(const std::string& list) {
  std::vector<ScriptedFormat> formats;
  for (size_t at = 0; at < list.size(); at = list.find(',', at) + 1) {
    ScriptedFormat f{0, 0, 0};
    char range = 0;
    std::sscanf(list.c_str() + at, "%dx%d@%lf%c", &f.width, &f.height, &f.maxRate, &range);
    if (range == 'v') f.subtype = kPixelFormat420VideoRange;
    formats.push_back(f);
    if (list.find(',', at) == std::string::npos) break;
  }
  return test::scriptedCamera(AVCaptureDevicePositionBack, test::kPhoneBack, formats)->formats();
}

TEST(FormatWalkTest, ChoosesAsTheWalkSays) {
  const struct {
    const char* formats;
    int32_t width, height;
    double rate;
    int chosen;  // index into formats, -1 for none
    bool winner;
    double best;
    bool exact;
  } walks[] = {
      // Wider than 1920: any larger format, whatever its shape.
      {"1920x1080@60,4032x3024@30,3840x2160@30", 2560, 1440, 30, 1, true, 0, false},
      // 1280 x 720: a larger 4:3 format does not count, a larger 16:9 one does.
      {"640x480@60,1440x1080@60,1920x1080@60", 1280, 720, 60, 2, true, 0, false},
      {"1280x720@60v,1280x720@60,1920x1080@60", 1280, 720, 60, 1, true, 0, true},  // full first
      // Capped at 30, asked for 60: the first candidate of the best rate.
      {"1280x720@30,1920x1080@30,1920x1080@25", 1280, 720, 60, 0, false, 30, true},
      {"1280x720@24,1920x1080@30", 1280, 720, 60, 1, false, 30, true},  // a larger one offers more
      {"640x480@30", 1280, 720, 30, -1, false, 0, false},
  };
  for (const auto& c : walks) {
    const auto formats = formatsOf(c.formats);
    const ActiveFormatChoice choice = chooseActiveFormat(formats, c.width, c.height, c.rate);
    EXPECT_EQ(choice.chosen(), c.chosen < 0 ? nullptr : formats[static_cast<size_t>(c.chosen)])
        << c.formats;
    EXPECT_EQ(std::tuple(choice.winner != nullptr, choice.best, choice.exact),
              std::tuple(c.winner, c.best, c.exact))
        << c.formats;
  }
}

TEST(CropRegionTest, CentralPartOfTheFormat) {
  const struct {
    LFLiveVideoSessionPreset preset;
    double width, height;  // the output's size
    int32_t formatWidth, formatHeight;
    bool landscape;
    double x, y, w, h;  // all 0: no crop
  } presets[] = {
      {0, 640, 360, 640, 480, true, 0, 0.125, 1, 0.75},
      {3, 800, 600, 1280, 720, true, 0.1875, 0.083333, 0.625, 0.833333},
      {3, 600, 800, 1280, 720, false, 0.083333, 0.1875, 0.833333, 0.625},
      {5, 1280, 960, 1920, 1080, true, 0.166667, 0.055556, 0.666667, 0.888889},
      {7, 2560, 1440, 3840, 2160, true, 0, 0, 0, 0},  // same shape
      {7, 2560, 1440, 4032, 3024, true, 0.182540, 0.261905, 0.634921, 0.476190},
      {4, 1280, 720, 1920, 1440, true, 0, 0, 0, 0},  // never cropped
  };
  for (const auto& c : presets) {
    SCOPED_TRACE(testing::Message() << "preset " << c.preset << " " << c.formatWidth);
    const auto region = cropRegionForPreset(c.preset, {c.width, c.height}, c.formatWidth,
                                            c.formatHeight, c.landscape);
    ASSERT_EQ(region.has_value(), c.w > 0);
    if (!region) continue;
    for (auto [seen, want] :
         {std::pair{region->x, c.x}, {region->y, c.y}, {region->width, c.w}, {region->height, c.h}})
      EXPECT_NEAR(seen, want, 1e-4);
  }
}

// Medium quality at size preset 0 (640 x 360).
std::shared_ptr<LFLiveVideoConfiguration> preset0(int fps, int64_t orientation) {
  return LFLiveVideoConfiguration::defaultConfigurationForQualityPresetFPSOutputImageOrientation(
      1, 0, fps, orientation);
}

// Keeps every picture; the first one may be held at a gate until it opens.
class PictureRecorder : public LFVideoCaptureDelegate {
 public:
  void captureOutput(LFVideoCapture&, const std::shared_ptr<PixelBuffer>& buffer,
                     const LFVideoColourTags* colourTags) override {
    last = buffer;
    tags = colourTags ? std::optional(*colourTags) : std::nullopt;
    times.push_back(buffer->presentationTime());
    if (++count == 1 && gate.valid()) {
      entered.set_value();
      gate.wait();
    }
  }
  std::shared_ptr<PixelBuffer> last;
  std::optional<LFVideoColourTags> tags;
  std::vector<double> times;
  int count = 0;
  std::promise<void> entered;
  std::shared_future<void> gate;
};

TEST(VideoCaptureTest, Preset0CropsTheWebcamAndMirrorsByDefault) {
  test::ScriptedDriver* driver = nullptr;
  test::CameraAndSettings env(test::scriptedCameras(AVCaptureDevicePositionBack, test::kUsbWebcam,
                                                    {{640, 480, 30}}, &driver));
  test::expectGlContext();
  auto configuration = preset0(30, 3);
  ASSERT_EQ(configuration->videoSize(), (VideoSize{640, 360}));
  auto capture = LFVideoCapture::create(configuration);
  ASSERT_TRUE(capture->videoCamera());
  auto recorder = std::make_shared<PictureRecorder>();
  capture->setDelegate(recorder);
  capture->setRunning(true);
  ASSERT_TRUE(capture->cropFilter());

  const auto deliver = [&](double time) {
    // White bands of 60 rows at the top and the bottom, red and green halves.
    driver->deliver(
        test::nv12Frame(640, 480, ColourMatrix::bt601, ColourRange::full, time, [](int x, int y) {
          if (y < 60 || y >= 420) return test::kWhite;
          return x < 320 ? test::kRed : test::kGreen;
        }));
    runSynchronouslyOnVideoProcessingQueue([] {});
  };
  deliver(1.0);
  ASSERT_TRUE(recorder->last);
  ASSERT_EQ(std::pair(recorder->last->width(), recorder->last->height()), std::pair(640, 360));
  // No band left at the top or the bottom; the red half is on the right.
  for (int y : {1, 180, 358}) {
    EXPECT_TRUE(near(pixelAt(*recorder->last, 100, y), test::kGreen, 12)) << "row " << y;
    EXPECT_TRUE(near(pixelAt(*recorder->last, 540, y), test::kRed, 12)) << "row " << y;
  }
  capture->setMirror(false);
  deliver(2.0);
  EXPECT_GT(pixelAt(*recorder->last, 100, 180).r, 240);

  // Inactive: frames are dropped at the camera input.
  capture->willEnterBackground();
  deliver(3.0);
  capture->willEnterForeground();
  deliver(4.0);
  EXPECT_EQ(recorder->times, (std::vector<double>{1.0, 2.0, 4.0}));
  capture->setRunning(false);
}

TEST(VideoCaptureTest, CameraWithoutThePresetFallsBackAndTakesTheBestRate) {
  test::CameraAndSettings env(test::scriptedCameras(AVCaptureDevicePositionBack, test::kPhoneBack,
                                                    {{1280, 720, 30}, {1920, 1080, 30}}));
  test::expectGlContext();
  auto capture = LFVideoCapture::create(preset0(60, 1));
  ASSERT_TRUE(capture->videoCamera());
  // High takes 1920 x 1080; asked for 60 there, the rate falls to 30.
  EXPECT_EQ(std::tuple(capture->videoCamera()->captureSessionPreset(),
                       capture->device()->activeFormat()->width, capture->videoFrameRate()),
            std::tuple(AVCaptureSessionPresetHigh, 1920, 30));
}

// A 64 x 32 USB webcam whose format is the output's size, so that the chain
// needs no crop; colours tagged "Auto" so that pictures carry their tags.
class DirectPathTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
    env.defaults().setString(keys::colorspace, "Auto");
    auto configuration = preset0(30, 3);
    configuration->setVideoSize({64, 32});
    capture = LFVideoCapture::create(configuration);
    ASSERT_TRUE(capture->videoCamera());
    capture->setMirror(false);
    capture->setDelegate(recorder);
  }
  void TearDown() override {
    if (capture) capture->setRunning(false);
  }
  // Red on the left half, blue on the right, as a BT.601 full-range camera stores them.
  CameraFramePtr deliver(double time) {
    auto frame = test::nv12Frame(64, 32, ColourMatrix::bt601, ColourRange::full, time,
                                 [](int x, int) { return x < 32 ? test::kRed : test::kBlue; });
    driver->deliver(frame);
    runSynchronouslyOnVideoProcessingQueue([] {});
    return frame;
  }

  test::ScriptedDriver* driver = nullptr;
  test::CameraAndSettings env{test::scriptedCameras(AVCaptureDevicePositionBack, test::kUsbWebcam,
                                                    {{64, 32, 30}}, &driver)};
  std::shared_ptr<LFVideoCapture> capture;
  std::shared_ptr<PictureRecorder> recorder = std::make_shared<PictureRecorder>();
};

TEST_F(DirectPathTest, CameraFrameGoesAsItIsWhileTheChainChangesNothing) {
  struct Step {
    const char* name;
    std::function<void()> change;
    bool drawn;
    bool mirrored;
  };
  const std::vector<Step> steps = {
      {"identity", [] {}, false, false},
      {"mirror", [&] { capture->setMirror(true); }, true, true},
      {"mirror off", [&] { capture->setMirror(false); }, false, false},
      {"preview", [&] { capture->setPreView(std::make_shared<GPUImageView>()); }, true, false},
      {"no preview", [&] { capture->setPreView(nullptr); }, false, false},
  };
  capture->setRunning(true);
  double time = 1.0;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    step.change();
    const auto frame = deliver(time++);
    const auto& picture = recorder->last;
    ASSERT_TRUE(picture);
    ASSERT_TRUE(recorder->tags && recorder->tags->matrixBT601);
    if (!step.drawn) {
      ASSERT_EQ(picture->format(), PixelFormat::nv12);
      EXPECT_EQ(
          std::tuple(picture->plane(0), picture->plane(1), picture->matrix(), picture->fullRange()),
          std::tuple(frame->data(0), frame->data(1), YuvMatrix::bt601, true));
      continue;
    }
    ASSERT_EQ(picture->format(), PixelFormat::bgra);
    const Bgra left = step.mirrored ? test::kBlue : test::kRed,
               right = step.mirrored ? test::kRed : test::kBlue;
    for (int y : {1, 30}) {
      EXPECT_TRUE(near(pixelAt(*picture, 1, y), left)) << pixelAt(*picture, 1, y);
      EXPECT_TRUE(near(pixelAt(*picture, 62, y), right)) << pixelAt(*picture, 62, y);
    }
  }
  // A crop from a format of other proportions: drawn again.
  capture->configuration()->setVideoSize({48, 32});
  capture->reloadFilter();
  ASSERT_TRUE(capture->cropFilter());
  deliver(time);
  EXPECT_EQ(recorder->last->format(), PixelFormat::bgra);
}

TEST_F(DirectPathTest, FrameArrivingWhileOneIsWithTheSessionIsDropped) {
  std::promise<void> open;
  recorder->gate = open.get_future().share();
  capture->setRunning(true);
  ASSERT_TRUE(driver->deliver(test::nv12Frame(64, 32, ColourMatrix::bt709, ColourRange::video, 1.0,
                                              [](int, int) { return test::kGreen; })));
  ASSERT_EQ(recorder->entered.get_future().wait_for(std::chrono::seconds(10)),
            std::future_status::ready);
  driver->deliver(test::nv12Frame(64, 32, ColourMatrix::bt709, ColourRange::video, 2.0,
                                  [](int, int) { return test::kGreen; }));
  open.set_value();
  deliver(3.0);
  EXPECT_EQ(std::tuple(recorder->times, recorder->last->format()),
            std::tuple(std::vector{1.0, 3.0}, PixelFormat::nv12));
}

struct GpuYuvCase {
  const char* name;
  PixelFormat requested;
  const char* override;
  PixelFormat delivered;
};
class GpuYuvOutputTest : public DirectPathTest, public testing::WithParamInterface<GpuYuvCase> {
 protected:
  void TearDown() override {
    DirectPathTest::TearDown();
    unsetenv("OXELO_GPU_YUV");
  }
};

// Mirrored, so drawn: red lands on the right, blue on the left, in the
// camera's matrix at video range.
TEST_P(GpuYuvOutputTest, DrawnPictureComesInTheLayoutAskedFor) {
  const auto& c = GetParam();
  setenv("OXELO_GPU_YUV", c.override, 1);
  capture->setOutputPixelFormat(c.requested);
  capture->setMirror(true);
  capture->setRunning(true);
  deliver(1.0);
  const auto& picture = recorder->last;
  ASSERT_TRUE(picture);
  ASSERT_EQ(std::tuple(picture->format(), picture->presentationTime()),
            std::tuple(c.delivered, 1.0));
  if (c.delivered == PixelFormat::bgra) {
    EXPECT_TRUE(near(pixelAt(*picture, 1, 1), test::kBlue)) << pixelAt(*picture, 1, 1);
    return;
  }
  EXPECT_EQ(std::tuple(picture->matrix(), picture->fullRange()),
            std::tuple(YuvMatrix::bt601, false));
  for (auto [x, colour] : {std::pair{4, test::kBlue}, std::pair{58, test::kRed}}) {
    const YCbCr want =
        ycbcrOf(colour.r, colour.g, colour.b, ColourMatrix::bt601, ColourRange::video);
    const int y = 16, cx = x / 2, cy = y / 2;
    const uint8_t luma = picture->plane(0)[y * picture->planeStride(0) + x];
    const uint8_t* chroma = picture->plane(1) + cy * picture->planeStride(1);
    const uint8_t cb = c.delivered == PixelFormat::nv12 ? chroma[2 * cx] : chroma[cx];
    const uint8_t cr = c.delivered == PixelFormat::nv12
                           ? chroma[2 * cx + 1]
                           : picture->plane(2)[cy * picture->planeStride(2) + cx];
    for (auto [seen, expected] : {std::pair{luma, want.y}, {cb, want.cb}, {cr, want.cr}})
      EXPECT_NEAR(seen, expected, 3) << "x " << x;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Overrides, GpuYuvOutputTest,
    testing::Values(GpuYuvCase{"Nv12", PixelFormat::nv12, "1", PixelFormat::nv12},
                    GpuYuvCase{"I420", PixelFormat::i420, "1", PixelFormat::i420},
                    GpuYuvCase{"Off", PixelFormat::i420, "0", PixelFormat::bgra}),
    [](const auto& info) { return std::string(info.param.name); });

class FailureRecorder : public LFVideoCaptureViewDelegate {
 public:
  void videoDeviceDidFail(const CameraError& error) override { errors.push_back(error.code); }
  std::vector<CameraErrorCode> errors;
};

TEST_F(DirectPathTest, CameraThatVanishesReachesTheViewDelegate) {
  test::ManualMain main;
  auto failures = std::make_shared<FailureRecorder>();
  capture->setCaptureDelegate(failures);
  capture->setRunning(true);
  EXPECT_FALSE(capture->cameraError());
  ASSERT_TRUE(driver->endStream(CameraError::vanished("usb")));
  runSynchronouslyOnVideoProcessingQueue([] {});
  EXPECT_TRUE(failures->errors.empty());  // not before the main queue runs
  main.drain();
  EXPECT_EQ(std::tuple(failures->errors, capture->cameraError().code),
            std::tuple(std::vector{CameraErrorCode::vanished}, CameraErrorCode::vanished));
}

// Nothing found, or found but busy.
TEST(NoCameraTest, CaptureSaysWhyItHasNoCamera) {
  const CameraProblem busy{"/dev/video0", "Device or resource busy",
                           CameraError::inUse("/dev/video0")};
  for (auto [problems, code] : {std::pair{std::vector<CameraProblem>{}, CameraErrorCode::noCamera},
                                {std::vector{busy}, CameraErrorCode::inUse}}) {
    test::CameraAndSettings env(std::make_shared<CameraSystem>(
        "v4l2", std::vector<std::shared_ptr<CaptureDevice>>{}, problems));
    auto capture = LFVideoCapture::create(LFLiveVideoConfiguration::defaultConfiguration());
    EXPECT_FALSE(capture->videoCamera() || capture->cameraError().message.empty());
    EXPECT_EQ(std::tuple(capture->cameraError().code, exitStatusOf(capture->cameraError())),
              std::tuple(code, static_cast<int>(code)));
  }
}

// beautyFace and beautyMethod choose the stage in the middle of the chain at
// each rebuild; a method alone waits for the next one. The levels reach the
// one-pass filter while it stands; a new one starts at its own defaults.
TEST_F(DirectPathTest, BeautySettingsChooseTheStageAtEachRebuild) {
  enum Kind { empty, beauty, beautify };
  struct Step {
    const char* name;
    std::function<void()> change;
    Kind kind;
    double beautyLevel;  // of the one-pass filter, where it stands
  };
  const std::vector<Step> steps = {
      {"on, method 0", [&] { capture->setBeautyFace(true); }, beauty, 0.5},
      {"levels", [&] { capture->setBeautyLevel(0.9); }, beauty, 0.9},
      {"method 1 waits", [&] { capture->setBeautyMethod(1); }, beauty, 0.9},
      {"rebuilt with method 1", [&] { capture->setBeautyFace(true); }, beautify, 0},
      {"method 2",
       [&] {
         capture->setBeautyMethod(2);
         capture->setBeautyFace(true);
       },
       beauty, 0.5},
      {"off", [&] { capture->setBeautyFace(false); }, empty, 0},
  };
  capture->setRunning(true);
  double time = 1.0;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    step.change();
    const Kind kind = capture->beautyFilter()     ? beauty
                      : capture->beautifyFilter() ? beautify
                                                  : empty;
    EXPECT_EQ(std::tuple(kind, capture->filter() == capture->beautyFilter(),
                         capture->filter() == capture->beautifyFilter()),
              std::tuple(step.kind, kind == beauty, kind == beautify));
    if (kind == beauty) {
      EXPECT_EQ(capture->beautyFilter()->beautyLevel(), step.beautyLevel);
    }
    deliver(time++);
    ASSERT_TRUE(recorder->last);
    // Only the pass-through lets the camera's frame go undrawn.
    EXPECT_EQ(recorder->last->format(), kind == empty ? PixelFormat::nv12 : PixelFormat::bgra);
  }
  EXPECT_EQ(capture->beautyMethod(), 0);
}

}  // namespace
}  // namespace oxelo
