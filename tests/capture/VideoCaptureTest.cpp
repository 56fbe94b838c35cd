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
  return test::scriptedCamera("walk", AVCaptureDeviceTypeBuiltInWideAngleCamera,
                              AVCaptureDevicePositionBack, test::kPhoneBack, formats)
      ->formats();
}

struct WalkCase {
  const char* name;
  const char* formats;
  int32_t width, height;
  double rate;
  int chosen;  // index into formats, -1 for none
  bool winner;
  double best;
  bool exact;
};
class FormatWalkTest : public testing::TestWithParam<WalkCase> {};

TEST_P(FormatWalkTest, ChoosesAsTheWalkSays) {
  const auto& c = GetParam();
  const auto formats = formatsOf(c.formats);
  const ActiveFormatChoice choice = chooseActiveFormat(formats, c.width, c.height, c.rate);
  EXPECT_EQ(choice.chosen(), c.chosen < 0 ? nullptr : formats[static_cast<size_t>(c.chosen)]);
  EXPECT_EQ(choice.winner != nullptr, c.winner);
  EXPECT_EQ(choice.best, c.best);
  EXPECT_EQ(choice.exact, c.exact);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, FormatWalkTest,
    testing::Values(
        // Wider than 1920: any larger format, whatever its shape.
        WalkCase{"WideRequestTakesAnyShape", "1920x1080@60,4032x3024@30,3840x2160@30", 2560, 1440,
                 30, 1, true, 0, false},
        // 1280 x 720: a larger 4:3 format does not count, a larger 16:9 one does.
        WalkCase{"OtherShapeSkipped", "640x480@60,1440x1080@60,1920x1080@60", 1280, 720, 60, 2,
                 true, 0, false},
        WalkCase{"ExactFullRangeFirst", "1280x720@60v,1280x720@60,1920x1080@60", 1280, 720, 60, 1,
                 true, 0, true},
        // Capped at 30, asked for 60: the first candidate of the best rate.
        WalkCase{"RateFallsToTheBest", "1280x720@30,1920x1080@30,1920x1080@25", 1280, 720, 60, 0,
                 false, 30, true},
        WalkCase{"LargerFormatOffersMore", "1280x720@24,1920x1080@30", 1280, 720, 60, 1, false, 30,
                 true},
        WalkCase{"NothingLargeEnough", "640x480@30", 1280, 720, 30, -1, false, 0, false}),
    [](const auto& info) { return std::string(info.param.name); });

struct CropCase {
  const char* name;
  LFLiveVideoSessionPreset preset;
  double width, height;  // the output's size
  int32_t formatWidth, formatHeight;
  bool landscape;
  double x, y, w, h;  // all 0: no crop
};
class CropRegionTest : public testing::TestWithParam<CropCase> {};

TEST_P(CropRegionTest, CentralPartOfTheFormat) {
  const auto& c = GetParam();
  const auto region = cropRegionForPreset(c.preset, {c.width, c.height}, c.formatWidth,
                                          c.formatHeight, c.landscape);
  ASSERT_EQ(region.has_value(), c.w > 0);
  if (!region) return;
  EXPECT_NEAR(region->x, c.x, 1e-4);
  EXPECT_NEAR(region->y, c.y, 1e-4);
  EXPECT_NEAR(region->width, c.w, 1e-4);
  EXPECT_NEAR(region->height, c.h, 1e-4);
}

INSTANTIATE_TEST_SUITE_P(
    Presets, CropRegionTest,
    testing::Values(CropCase{"Preset0", 0, 640, 360, 640, 480, true, 0, 0.125, 1, 0.75},
                    CropCase{"Preset3", 3, 800, 600, 1280, 720, true, 0.1875, 0.083333, 0.625,
                             0.833333},
                    CropCase{"Preset3Portrait", 3, 600, 800, 1280, 720, false, 0.083333, 0.1875,
                             0.833333, 0.625},
                    CropCase{"Preset7SameShape", 7, 2560, 1440, 3840, 2160, true, 0, 0, 0, 0},
                    CropCase{"Preset7OtherShape", 7, 2560, 1440, 4032, 3024, true, 0.182540,
                             0.261905, 0.634921, 0.476190},
                    CropCase{"Preset4NeverCropped", 4, 1280, 720, 1920, 1440, true, 0, 0, 0, 0}),
    [](const auto& info) { return std::string(info.param.name); });

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
  auto webcam = test::scriptedCamera("usb", AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                     AVCaptureDevicePositionBack, test::kUsbWebcam,
                                     {{640, 480, 30}}, &driver);
  test::CameraAndSettings env(std::make_shared<CameraSystem>("scripted", std::vector{webcam}));
  test::expectGlContext();
  auto configuration =
      LFLiveVideoConfiguration::defaultConfigurationForQualityPresetFPSOutputImageOrientation(
          1, 0, 30, 3);
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
  ASSERT_EQ(recorder->last->width(), 640);
  ASSERT_EQ(recorder->last->height(), 360);
  // No band left at the top or the bottom; the red half is on the right.
  for (int y : {1, 180, 358}) {
    const Bgra left = pixelAt(*recorder->last, 100, y), right = pixelAt(*recorder->last, 540, y);
    EXPECT_GT(left.g, 240) << "row " << y << " " << left;
    EXPECT_LT(left.r, 10) << "row " << y << " " << left;
    EXPECT_GT(right.r, 240) << "row " << y << " " << right;
    EXPECT_LT(right.b, 10) << "row " << y << " " << right;
  }
  capture->setMirror(false);
  deliver(2.0);
  EXPECT_GT(pixelAt(*recorder->last, 100, 180).r, 240);

  // Inactive: frames are dropped at the camera input.
  capture->willEnterBackground();
  deliver(3.0);
  EXPECT_EQ(recorder->count, 2);
  capture->willEnterForeground();
  deliver(4.0);
  EXPECT_EQ(recorder->count, 3);
  capture->setRunning(false);
}

TEST(VideoCaptureTest, CameraWithoutThePresetFallsBackAndTakesTheBestRate) {
  auto camera = test::scriptedCamera("hd", AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                     AVCaptureDevicePositionBack, test::kPhoneBack,
                                     {{1280, 720, 30}, {1920, 1080, 30}});
  test::CameraAndSettings env(std::make_shared<CameraSystem>("scripted", std::vector{camera}));
  test::expectGlContext();
  auto configuration =
      LFLiveVideoConfiguration::defaultConfigurationForQualityPresetFPSOutputImageOrientation(
          1, 0, 60, 1);
  auto capture = LFVideoCapture::create(configuration);
  ASSERT_TRUE(capture->videoCamera());
  EXPECT_EQ(capture->videoCamera()->captureSessionPreset(), AVCaptureSessionPresetHigh);
  // High takes 1920 x 1080; asked for 60 there, the rate falls to 30.
  EXPECT_EQ(capture->device()->activeFormat()->width, 1920);
  EXPECT_EQ(capture->videoFrameRate(), 30);
}

// A 64 x 32 USB webcam whose format is the output's size, so that the chain
// needs no crop; colours tagged "Auto" so that pictures carry their tags.
class DirectPathTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
    env.defaults().setString(keys::colorspace, "Auto");
    auto configuration =
        LFLiveVideoConfiguration::defaultConfigurationForQualityPresetFPSOutputImageOrientation(
            1, 0, 30, 3);
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
  test::CameraAndSettings env{std::make_shared<CameraSystem>(
      "scripted", std::vector{test::scriptedCamera("usb", AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                                   AVCaptureDevicePositionBack, test::kUsbWebcam,
                                                   {{64, 32, 30}}, &driver)})};
  std::shared_ptr<LFVideoCapture> capture;
  std::shared_ptr<PictureRecorder> recorder = std::make_shared<PictureRecorder>();
};

bool near(const Bgra& seen, const Bgra& want) {
  return std::abs(seen.r - want.r) <= 3 && std::abs(seen.g - want.g) <= 3 &&
         std::abs(seen.b - want.b) <= 3;
}

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
    const auto frame = deliver(time);
    const auto& picture = recorder->last;
    ASSERT_TRUE(picture);
    ASSERT_TRUE(recorder->tags);
    EXPECT_TRUE(recorder->tags->matrixBT601);
    time += 1.0;
    if (!step.drawn) {
      ASSERT_EQ(picture->format(), PixelFormat::nv12);
      EXPECT_EQ(picture->plane(0), frame->data(0));
      EXPECT_EQ(picture->plane(1), frame->data(1));
      EXPECT_EQ(picture->matrix(), YuvMatrix::bt601);
      EXPECT_TRUE(picture->fullRange());
      continue;
    }
    ASSERT_EQ(picture->format(), PixelFormat::bgra);
    const Bgra left = step.mirrored ? test::kBlue : test::kRed;
    const Bgra right = step.mirrored ? test::kRed : test::kBlue;
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
  EXPECT_EQ(recorder->times, (std::vector<double>{1.0, 3.0}));
  EXPECT_EQ(recorder->last->format(), PixelFormat::nv12);
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
  ASSERT_EQ(picture->format(), c.delivered);
  EXPECT_EQ(picture->presentationTime(), 1.0);
  if (c.delivered == PixelFormat::bgra) {
    EXPECT_TRUE(near(pixelAt(*picture, 1, 1), test::kBlue)) << pixelAt(*picture, 1, 1);
    return;
  }
  EXPECT_EQ(picture->matrix(), YuvMatrix::bt601);
  EXPECT_FALSE(picture->fullRange());
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
    EXPECT_NEAR(luma, want.y, 3) << "x " << x;
    EXPECT_NEAR(cb, want.cb, 3) << "x " << x;
    EXPECT_NEAR(cr, want.cr, 3) << "x " << x;
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
  EXPECT_EQ(failures->errors, std::vector{CameraErrorCode::vanished});
  EXPECT_EQ(capture->cameraError().code, CameraErrorCode::vanished);
}

struct NoCameraCase {
  const char* name;
  std::vector<CameraProblem> problems;
  CameraErrorCode code;
};
class NoCameraTest : public testing::TestWithParam<NoCameraCase> {};

TEST_P(NoCameraTest, CaptureSaysWhyItHasNoCamera) {
  const auto& c = GetParam();
  test::CameraAndSettings env(std::make_shared<CameraSystem>(
      "v4l2", std::vector<std::shared_ptr<CaptureDevice>>{}, c.problems));
  auto capture = LFVideoCapture::create(LFLiveVideoConfiguration::defaultConfiguration());
  EXPECT_FALSE(capture->videoCamera());
  EXPECT_EQ(capture->cameraError().code, c.code);
  EXPECT_EQ(exitStatusOf(capture->cameraError()), static_cast<int>(c.code));
  EXPECT_FALSE(capture->cameraError().message.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Backends, NoCameraTest,
    testing::Values(NoCameraCase{"NothingFound", {}, CameraErrorCode::noCamera},
                    NoCameraCase{"FoundButBusy",
                                 {{"/dev/video0", "Device or resource busy",
                                   CameraError::inUse("/dev/video0")}},
                                 CameraErrorCode::inUse}),
    [](const auto& info) { return std::string(info.param.name); });

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
    EXPECT_EQ(kind, step.kind);
    EXPECT_EQ(capture->filter() == capture->beautyFilter(), kind == beauty);
    EXPECT_EQ(capture->filter() == capture->beautifyFilter(), kind == beautify);
    if (kind == beauty) {
      EXPECT_EQ(capture->beautyFilter()->beautyLevel(), step.beautyLevel);
    }
    deliver(time);
    time += 1.0;
    ASSERT_TRUE(recorder->last);
    // Only the pass-through lets the camera's frame go undrawn.
    EXPECT_EQ(recorder->last->format(), kind == empty ? PixelFormat::nv12 : PixelFormat::bgra);
  }
  EXPECT_EQ(capture->beautyMethod(), 0);
}

}  // namespace
}  // namespace oxelo
