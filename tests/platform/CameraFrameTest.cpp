#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "platform/camera/CameraFrame.h"
#include "platform/camera/Nv12Conversion.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/camera/VirtualPicture.h"
#include "tests/platform/CameraFakes.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/TestBytes.h"

namespace oxelo {
namespace {

using test::planeBytes;

TEST(CameraFrameTest, PlanesAreAlignedAndTheChromaCoversOddSizes) {
  auto frame = CameraFrame::make(5, 3);
  auto planes = frame->planes();
  for (int p = 0; p < 2; ++p) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(planes[p].data) % 64 + planes[p].stride % 64, 0u) << p;
    EXPECT_EQ(planes[p].data, frame->data(p));
  }
  EXPECT_EQ((std::tuple(planes[1].width, planes[1].height, planes[1].bytesPerTexel)),
            std::tuple(3, 2, 2));
  EXPECT_GE(planes[1].data, planes[0].data + planes[0].stride * 3);  // after the whole luma
}

// Worked out from Y = Kr R + (1 - Kr - Kb) G + Kb B, Cb = (B - Y) / (2 (1 - Kb)),
// Cr = (R - Y) / (2 (1 - Kr)), scaled by 219 / 224 (video) or 255 (full).
TEST(CameraFrameTest, ColoursBecomeTheYCbCrOfTheirMatrixAndRange) {
  constexpr auto k601 = ColourMatrix::bt601, k709 = ColourMatrix::bt709;
  constexpr auto kVideo = ColourRange::video, kFull = ColourRange::full;
  const struct {
    uint8_t r, g, b;
    ColourMatrix matrix;
    ColourRange range;
    YCbCr expected;
  } rows[] = {
      {0, 0, 0, k601, kVideo, {16, 128, 128}},       {255, 255, 255, k709, kVideo, {235, 128, 128}},
      {255, 255, 255, k601, kFull, {255, 128, 128}}, {255, 0, 0, k601, kVideo, {81, 90, 240}},
      {255, 0, 0, k709, kVideo, {63, 102, 240}},     {0, 255, 0, k601, kFull, {150, 44, 21}},
      {0, 0, 255, k709, kVideo, {32, 240, 118}},
  };
  for (const auto& c : rows) {
    EXPECT_EQ(ycbcrOf(c.r, c.g, c.b, c.matrix, c.range), c.expected)
        << int(c.r) << "," << int(c.g) << "," << int(c.b);
  }
}

TEST(CameraFrameTest, YuyvAndNv12AreTakenWhenLongEnoughWithoutTheirRowPadding) {
  // 2x3 YUYV: the third row has no partner and gives its chroma alone.
  const std::vector<uint8_t> yuyv = {1, 10, 2, 20, 3, 11, 4, 21, 5, 30, 6, 40};
  auto odd = CameraFrame::make(2, 3);
  ASSERT_TRUE(yuyvToNv12(yuyv.data(), yuyv.size(), 4, *odd));
  EXPECT_EQ(planeBytes(*odd, 0), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(planeBytes(*odd, 1), (std::vector<uint8_t>{11, 21, 30, 40}));

  auto frame = CameraFrame::make(4, 2);
  std::vector<uint8_t> data(64);
  EXPECT_FALSE(yuyvToNv12(data.data(), 15, 8, *frame));  // needs 16
  EXPECT_TRUE(yuyvToNv12(data.data(), 16, 8, *frame));
  EXPECT_FALSE(yuyvToNv12(data.data(), 64, 6, *frame));  // rows shorter than the picture
  EXPECT_FALSE(copyNv12(data.data(), 11, 4, *frame));    // needs 12
  // NV12 is taken as it is, without the padding of its 6-byte rows.
  auto nv12 = test::hex("01020304 0000 05060708 0000 090a0b0c 0000");
  ASSERT_TRUE(copyNv12(nv12.data(), nv12.size(), 6, *frame));
  EXPECT_EQ(planeBytes(*frame, 0), test::hex("01 02 03 04 05 06 07 08"));
  EXPECT_EQ(planeBytes(*frame, 1), test::hex("09 0a 0b 0c"));
}

// A 4x2 picture's Cb plane at each subsampling becomes the average of each 2x2 block.
TEST(CameraFrameTest, FinerChromaIsAveragedOverEachTwoByTwoBlock) {
  const struct {
    int shiftX, shiftY, stride;
    std::vector<uint8_t> cb, expectedCb;
  } rows[] = {
      {1, 1, 2, {10, 20}, {10, 20}},                          // 4:2:0
      {1, 0, 2, {10, 20, 13, 25}, {12, 23}},                  // 4:2:2
      {0, 0, 4, {10, 11, 20, 30, 12, 13, 20, 31}, {12, 25}},  // 4:4:4
  };
  const std::vector<uint8_t> luma = {1, 2, 3, 4, 5, 6, 7, 8};
  for (const auto& c : rows) {
    std::vector<uint8_t> cr(c.cb.size(), 77);
    PlanarPicture picture{
        {luma.data(), c.cb.data(), cr.data()}, {4, c.stride, c.stride}, c.shiftX, c.shiftY};
    auto frame = CameraFrame::make(4, 2);
    planarToNv12(picture, *frame);
    EXPECT_EQ(planeBytes(*frame, 0), luma);
    EXPECT_EQ(planeBytes(*frame, 1),
              (std::vector<uint8_t>{c.expectedCb[0], 77, c.expectedCb[1], 77}))
        << c.shiftX << c.shiftY;
  }
}

// The colour of luma sample (x, y) and its chroma pair.
YCbCr at(const CameraFrame& f, int x, int y) {
  const uint8_t* c = f.row(1, y / 2) + (x / 2) * 2;
  return {f.row(0, y)[x], c[0], c[1]};
}

std::shared_ptr<CaptureDevice> virtualCamera(int width, int height, double fps,
                                             const char* subtype) {
  auto camera = test::cameraJson("wide", "front", {{{width, height}, fps}});
  camera["formats"][0]["subtypes"] = {subtype};
  return test::camerasFromJson({{"cameras", {camera}}})->devices().front();
}

TEST(CameraFrameTest, VirtualFramesComeAtTheRateOfTheClockAndLateOnesAreSkipped) {
  test::ManualMain main;
  auto sink = std::make_shared<test::CameraFrameRecorder>();
  auto device = virtualCamera(64, 48, 10, "420v");
  const double start = main.clock().now();
  ASSERT_FALSE(device->startStreaming(sink));
  auto first = sink->frame(0);
  ASSERT_TRUE(first);
  EXPECT_DOUBLE_EQ(first->presentationTime, start);
  EXPECT_EQ(first->width(), 64);
  EXPECT_EQ(first->range, ColourRange::video);
  EXPECT_EQ(first->matrix, ColourMatrix::bt601);
  EXPECT_EQ(sink->count(), 1u) << "the next frame waits for its time";

  main.clock().advance(0.1);
  auto second = sink->frame(1);
  ASSERT_TRUE(second);
  EXPECT_NEAR(second->presentationTime, start + 0.1, 1e-9);

  // 0.35 s later frames 2 and 3 are past: frame 4 comes, at its own time.
  main.clock().advance(0.35);
  auto late = sink->frame(2);
  ASSERT_TRUE(late);
  EXPECT_NEAR(late->presentationTime, start + 0.4, 1e-9);
  auto expected = CameraFrame::make(64, 48);
  expected->matrix = late->matrix;
  expected->range = late->range;
  renderVirtualPicture(*expected, 4);
  EXPECT_EQ(planeBytes(*late, 0), planeBytes(*expected, 0));

  device->stopStreaming();
  main.clock().advance(1.0);
  EXPECT_EQ(sink->count(), 3u);
  EXPECT_EQ(sink->ends(), 0u);
}

// An HD full-range frame is coded bt709 full, with its four corner patches
// an eighth of the picture in size, red, green, blue and white.
TEST(CameraFrameTest, HdFullRangeVirtualFramesAreBt709FullWithTheirCornerPatches) {
  test::ManualMain main;
  auto sink = std::make_shared<test::CameraFrameRecorder>();
  auto device = virtualCamera(1280, 720, 30, "420f");
  ASSERT_FALSE(device->startStreaming(sink));
  auto frame = sink->frame(0);
  device->stopStreaming();
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->matrix, ColourMatrix::bt709);
  EXPECT_EQ(frame->range, ColourRange::full);
  auto colour = [](uint8_t r, uint8_t g, uint8_t b) {
    return ycbcrOf(r, g, b, ColourMatrix::bt709, ColourRange::full);
  };
  ASSERT_EQ(cornerPatchWidth(1280), 160);
  ASSERT_EQ(cornerPatchHeight(720), 90);
  const struct {
    int x0, y0;
    YCbCr colour;
    int outsideX, outsideY;  // a sample just outside the patch
  } corners[] = {{0, 0, colour(255, 0, 0), 160, 0},
                 {1120, 0, colour(0, 255, 0), 1118, 0},
                 {0, 630, colour(0, 0, 255), 0, 628},
                 {1120, 630, colour(255, 255, 255), 1279, 628}};
  for (const auto& c : corners) {
    for (int y = c.y0; y < c.y0 + 90; ++y)
      for (int x = c.x0; x < c.x0 + 160; ++x)
        ASSERT_EQ(at(*frame, x, y), c.colour) << x << "," << y;
    EXPECT_NE(at(*frame, c.outsideX, c.outsideY), c.colour) << c.x0 << "," << c.y0;
  }
  EXPECT_NE(at(*frame, 0, 90), colour(255, 0, 0));
}

TEST(CameraFrameTest, TheVirtualSetIsMountedAsThePhoneOfTheRotationTable) {
  for (auto& spec : defaultVirtualCameras()) {
    auto device = makeVirtualCamera(std::move(spec));
    SCOPED_TRACE(device->uniqueID());
    EXPECT_EQ(device->mounting(), (CameraMounting{device->position() == AVCaptureDevicePositionFront
                                                      ? CameraFacing::front
                                                      : CameraFacing::back,
                                                  270}));
  }
}

}  // namespace
}  // namespace oxelo
