#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "platform/camera/CameraFrame.h"
#include "platform/camera/Nv12Conversion.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/camera/VirtualPicture.h"
#include "tests/platform/CameraFrameRecorder.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

TEST(CameraFrameTest, PlanesAreAlignedAndTheChromaCoversOddSizes) {
  auto frame = CameraFrame::make(5, 3);
  EXPECT_EQ(frame->chromaWidth(), 3);
  EXPECT_EQ(frame->chromaHeight(), 2);
  auto planes = frame->planes();
  for (int p = 0; p < 2; ++p) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(planes[p].data) % 64, 0u) << p;
    EXPECT_EQ(planes[p].stride % 64, 0) << p;
    EXPECT_EQ(planes[p].data, frame->data(p));
  }
  EXPECT_EQ(planes[0].width, 5);
  EXPECT_EQ(planes[0].height, 3);
  EXPECT_EQ(planes[0].bytesPerTexel, 1);
  EXPECT_EQ(planes[1].width, 3);
  EXPECT_EQ(planes[1].height, 2);
  EXPECT_EQ(planes[1].bytesPerTexel, 2);
  // The chroma plane starts after the whole luma plane.
  EXPECT_GE(planes[1].data, planes[0].data + planes[0].stride * 3);
}

struct ColourCase {
  uint8_t r, g, b;
  ColourMatrix matrix;
  ColourRange range;
  YCbCr expected;
};

class CameraFrameColourTest : public testing::TestWithParam<ColourCase> {};

// Worked out from Y = Kr R + (1 - Kr - Kb) G + Kb B, Cb = (B - Y) / (2 (1 - Kb)),
// Cr = (R - Y) / (2 (1 - Kr)), scaled by 219 / 224 (video) or 255 (full).
TEST_P(CameraFrameColourTest, ColoursBecomeTheYCbCrOfTheirMatrixAndRange) {
  const auto& c = GetParam();
  EXPECT_EQ(ycbcrOf(c.r, c.g, c.b, c.matrix, c.range), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Colours, CameraFrameColourTest,
    testing::Values(
        ColourCase{0, 0, 0, ColourMatrix::bt601, ColourRange::video, {16, 128, 128}},
        ColourCase{255, 255, 255, ColourMatrix::bt709, ColourRange::video, {235, 128, 128}},
        ColourCase{255, 255, 255, ColourMatrix::bt601, ColourRange::full, {255, 128, 128}},
        ColourCase{255, 0, 0, ColourMatrix::bt601, ColourRange::video, {81, 90, 240}},
        ColourCase{255, 0, 0, ColourMatrix::bt709, ColourRange::video, {63, 102, 240}},
        ColourCase{0, 255, 0, ColourMatrix::bt601, ColourRange::full, {150, 44, 21}},
        ColourCase{0, 0, 255, ColourMatrix::bt709, ColourRange::video, {32, 240, 118}}));

std::vector<uint8_t> bytesOf(const CameraFrame& frame, int p) {
  auto view = frame.planes()[p];
  std::vector<uint8_t> bytes;
  for (int32_t y = 0; y < view.height; ++y)
    bytes.insert(
        bytes.end(), view.data + static_cast<size_t>(y) * view.stride,
        view.data + static_cast<size_t>(y) * view.stride + view.width * view.bytesPerTexel);
  return bytes;
}

TEST(CameraFrameTest, YuyvOfOddHeightTakesTheLastChromaRowAlone) {
  // 2x3: the third row has no partner.
  const std::vector<uint8_t> yuyv = {1, 10, 2, 20, 3, 11, 4, 21, 5, 30, 6, 40};
  auto frame = CameraFrame::make(2, 3);
  ASSERT_TRUE(yuyvToNv12(yuyv.data(), yuyv.size(), 4, *frame));
  EXPECT_EQ(bytesOf(*frame, 0), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(bytesOf(*frame, 1), (std::vector<uint8_t>{11, 21, 30, 40}));
}

TEST(CameraFrameTest, ShortBuffersAreRefused) {
  auto frame = CameraFrame::make(4, 2);
  std::vector<uint8_t> data(64);
  EXPECT_FALSE(yuyvToNv12(data.data(), 15, 8, *frame));  // needs 16
  EXPECT_TRUE(yuyvToNv12(data.data(), 16, 8, *frame));
  EXPECT_FALSE(yuyvToNv12(data.data(), 64, 6, *frame));  // rows shorter than the picture
  EXPECT_FALSE(copyNv12(data.data(), 11, 4, *frame));    // needs 12
  EXPECT_TRUE(copyNv12(data.data(), 12, 4, *frame));
}

struct PlanarCase {
  const char* name;
  int shiftX, shiftY;
  std::vector<uint8_t> cb;  // a 4x2 picture's Cb plane at its subsampling
  int cbStride;
  std::vector<uint8_t> expectedCb;  // the two NV12 Cb samples
};

class CameraFramePlanarTest : public testing::TestWithParam<PlanarCase> {};

TEST_P(CameraFramePlanarTest, FinerChromaIsAveragedOverEachTwoByTwoBlock) {
  const auto& c = GetParam();
  const std::vector<uint8_t> luma = {1, 2, 3, 4, 5, 6, 7, 8};
  std::vector<uint8_t> cr(c.cb.size(), 77);
  PlanarPicture picture;
  picture.planes[0] = luma.data();
  picture.strides[0] = 4;
  picture.planes[1] = c.cb.data();
  picture.planes[2] = cr.data();
  picture.strides[1] = picture.strides[2] = c.cbStride;
  picture.shiftX = c.shiftX;
  picture.shiftY = c.shiftY;
  auto frame = CameraFrame::make(4, 2);
  planarToNv12(picture, *frame);
  EXPECT_EQ(bytesOf(*frame, 0), luma);
  EXPECT_EQ(bytesOf(*frame, 1), (std::vector<uint8_t>{c.expectedCb[0], 77, c.expectedCb[1], 77}));
}

INSTANTIATE_TEST_SUITE_P(
    Subsampling, CameraFramePlanarTest,
    testing::Values(PlanarCase{"Yuv420", 1, 1, {10, 20}, 2, {10, 20}},
                    PlanarCase{"Yuv422", 1, 0, {10, 20, 13, 25}, 2, {12, 23}},
                    PlanarCase{"Yuv444", 0, 0, {10, 11, 20, 30, 12, 13, 20, 31}, 4, {12, 25}}),
    [](const auto& info) { return std::string(info.param.name); });

// The colour of luma sample (x, y) and its chroma pair.
YCbCr at(const CameraFrame& f, int x, int y) {
  const uint8_t* c = f.row(1, y / 2) + (x / 2) * 2;
  return {f.row(0, y)[x], c[0], c[1]};
}

TEST(CameraFrameTest, TheVirtualPictureHasItsFourCornerPatchesAnEighthInSize) {
  auto frame = CameraFrame::make(64, 32);
  frame->matrix = ColourMatrix::bt709;
  frame->range = ColourRange::full;
  renderVirtualPicture(*frame, 7);
  const auto red = ycbcrOf(255, 0, 0, frame->matrix, frame->range);
  const auto green = ycbcrOf(0, 255, 0, frame->matrix, frame->range);
  const auto blue = ycbcrOf(0, 0, 255, frame->matrix, frame->range);
  const auto white = ycbcrOf(255, 255, 255, frame->matrix, frame->range);
  ASSERT_EQ(cornerPatchWidth(64), 8);
  ASSERT_EQ(cornerPatchHeight(32), 4);
  struct Corner {
    int x0, y0;
    YCbCr colour;
  } corners[] = {{0, 0, red}, {56, 0, green}, {0, 28, blue}, {56, 28, white}};
  for (const auto& c : corners) {
    for (int y = c.y0; y < c.y0 + 4; ++y)
      for (int x = c.x0; x < c.x0 + 8; ++x) ASSERT_EQ(at(*frame, x, y), c.colour) << x << "," << y;
  }
  // Just outside each patch the picture is something else.
  EXPECT_NE(at(*frame, 8, 0), red);
  EXPECT_NE(at(*frame, 0, 4), red);
  EXPECT_NE(at(*frame, 55, 0), green);
  EXPECT_NE(at(*frame, 0, 27), blue);
  EXPECT_NE(at(*frame, 63, 27), white);
}

class CameraFrameVirtualStreamTest : public testing::Test {
 protected:
  std::shared_ptr<CaptureDevice> camera(const char* subtype, int width, int height, double fps) {
    std::string error;
    auto specs = parseVirtualCameras(
        {{"cameras",
          {{{"type", "wide"},
            {"position", "front"},
            {"formats",
             {{{"width", width}, {"height", height}, {"fps", fps}, {"subtypes", {subtype}}}}}}}}},
        error);
    EXPECT_TRUE(specs) << error;
    return specs ? makeVirtualCamera(std::move((*specs)[0])) : nullptr;
  }

  test::ManualMain main_;
  std::shared_ptr<test::CameraFrameRecorder> sink_ = std::make_shared<test::CameraFrameRecorder>();
};

TEST_F(CameraFrameVirtualStreamTest, FramesComeAtTheRateOfTheClockAndLateOnesAreSkipped) {
  auto device = camera("420v", 64, 48, 10);
  ASSERT_TRUE(device);
  const double start = main_.clock().now();
  ASSERT_FALSE(device->startStreaming(sink_));
  auto first = sink_->frame(0);
  ASSERT_TRUE(first);
  EXPECT_DOUBLE_EQ(first->presentationTime, start);
  EXPECT_EQ(first->width(), 64);
  EXPECT_EQ(first->range, ColourRange::video);
  EXPECT_EQ(first->matrix, ColourMatrix::bt601);
  EXPECT_EQ(sink_->count(), 1u) << "the next frame waits for its time";

  main_.clock().advance(0.1);
  auto second = sink_->frame(1);
  ASSERT_TRUE(second);
  EXPECT_NEAR(second->presentationTime, start + 0.1, 1e-9);

  // 0.35 s later frames 2 and 3 are past: frame 4 comes, at its own time.
  main_.clock().advance(0.35);
  auto late = sink_->frame(2);
  ASSERT_TRUE(late);
  EXPECT_NEAR(late->presentationTime, start + 0.4, 1e-9);
  auto expected = CameraFrame::make(64, 48);
  expected->matrix = late->matrix;
  expected->range = late->range;
  renderVirtualPicture(*expected, 4);
  EXPECT_EQ(bytesOf(*late, 0), bytesOf(*expected, 0));

  device->stopStreaming();
  main_.clock().advance(1.0);
  EXPECT_EQ(sink_->count(), 3u);
  EXPECT_EQ(sink_->ends(), 0u);
}

TEST_F(CameraFrameVirtualStreamTest, HdFullRangeFormatsAreTaggedBt709Full) {
  auto device = camera("420f", 1280, 720, 30);
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  auto frame = sink_->frame(0);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->matrix, ColourMatrix::bt709);
  EXPECT_EQ(frame->range, ColourRange::full);
  // The red patch in the frame's own coding.
  EXPECT_EQ(at(*frame, 0, 0), ycbcrOf(255, 0, 0, ColourMatrix::bt709, ColourRange::full));
}

TEST(CameraFrameTest, TheVirtualSetIsMountedAsThePhoneOfTheRotationTable) {
  for (auto& spec : defaultVirtualCameras()) {
    auto device = makeVirtualCamera(std::move(spec));
    SCOPED_TRACE(device->uniqueID());
    EXPECT_EQ(device->mounting().sensorRotation, 270);
    EXPECT_EQ(device->mounting().facing, device->position() == AVCaptureDevicePositionFront
                                             ? CameraFacing::front
                                             : CameraFacing::back);
  }
}

}  // namespace
}  // namespace oxelo
