#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <linux/videodev2.h>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <vector>

#include "platform/camera/CameraFrame.h"
#include "platform/camera/CameraSession.h"
#include "platform/camera/Nv12Conversion.h"
#include "platform/camera/V4l2CameraBackend.h"
#include "platform/camera/V4l2Mapping.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/camera/VirtualPicture.h"
#include "platform/camera/codec/LibavMjpegDecoder.h"
#include "tests/platform/CameraFakes.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/TestBytes.h"
#include "tests/support/TestSupport.h"

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
  ASSERT_TRUE(packed422ToNv12(yuyv.data(), yuyv.size(), 4, PackedOrder::yuyv, *odd));
  EXPECT_EQ(planeBytes(*odd, 0), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(planeBytes(*odd, 1), (std::vector<uint8_t>{11, 21, 30, 40}));

  auto frame = CameraFrame::make(4, 2);
  std::vector<uint8_t> data(64);
  EXPECT_FALSE(packed422ToNv12(data.data(), 64, 6, PackedOrder::yuyv, *frame));  // rows too short
  EXPECT_FALSE(copyNv12(data.data(), 64, 3, *frame));
  // NV12 is taken as it is, without the padding of its 6-byte rows.
  auto nv12 = test::hex("01020304 0000 05060708 0000 090a0b0c 0000");
  ASSERT_TRUE(copyNv12(nv12.data(), nv12.size(), 6, *frame));
  EXPECT_EQ(planeBytes(*frame, 0), test::hex("01 02 03 04 05 06 07 08"));
  EXPECT_EQ(planeBytes(*frame, 1), test::hex("09 0a 0b 0c"));
}

// The same 4x2 picture in every other layout a driver may hand over, rows
// padded with ee bytes: the same NV12 out, from exactly the bytes up to the
// last sample and not from one fewer.
TEST(CameraFrameTest, EveryLayoutGivesTheSameNv12FromJustEnoughBytes) {
  using Convert = std::function<bool(const std::vector<uint8_t>&, size_t, CameraFrame&)>;
  auto packed = [](PackedOrder order) -> Convert {
    return [order](const auto& b, size_t n, auto& f) {
      return packed422ToNv12(b.data(), n, 10, order, f);
    };
  };
  auto planar = [](bool crFirst) -> Convert {
    return [crFirst](const auto& b, size_t n, auto& f) {
      return planar420ToNv12(b.data(), n, 6, crFirst, f);
    };
  };
  const struct {
    const char* name;
    Convert convert;
    std::vector<uint8_t> bytes;
  } layouts[] = {
      {"NV21", [](const auto& b, size_t n, auto& f) { return copyNv12(b.data(), n, 6, f, true); },
       test::hex("01020304 eeee 05060708 eeee 20104030 eeee")},
      {"YU12", planar(false), test::hex("01020304 eeee 05060708 eeee 1030ee 2040ee")},
      {"YV12", planar(true), test::hex("01020304 eeee 05060708 eeee 2040ee 1030ee")},
      {"UYVY", packed(PackedOrder::uyvy), test::hex("1001200230034004 eeee 1005200630074008 eeee")},
      {"YVYU", packed(PackedOrder::yvyu), test::hex("0120021003400430 eeee 0520061007400830 eeee")},
      {"VYUY", packed(PackedOrder::vyuy), test::hex("2001100240033004 eeee 2005100640073008 eeee")},
  };
  for (const auto& layout : layouts) {
    size_t enough = layout.bytes.size();
    while (layout.bytes[enough - 1] == 0xee) --enough;
    auto frame = CameraFrame::make(4, 2);
    EXPECT_FALSE(layout.convert(layout.bytes, enough - 1, *frame)) << layout.name;
    ASSERT_TRUE(layout.convert(layout.bytes, enough, *frame)) << layout.name;
    EXPECT_EQ(planeBytes(*frame, 0), test::hex("01 02 03 04 05 06 07 08")) << layout.name;
    EXPECT_EQ(planeBytes(*frame, 1), test::hex("10 20 30 40")) << layout.name;
  }
}

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
  auto camera = test::cameraJson("wide", "back", {{{width, height}, fps}});
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
  EXPECT_EQ(std::tuple(first->presentationTime, first->range, first->matrix),
            std::tuple(start, ColourRange::video, ColourMatrix::bt601));
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
  EXPECT_EQ(std::pair(sink->count(), sink->ends()), (std::pair<size_t, size_t>(3, 0)));
}

// Every sample of an odd-sized frame, chroma pairs included, lands opposite.
TEST(CameraFrameTest, TheFrontCamerasPictureIsTheBackOneHalfTurned) {
  auto back = CameraFrame::make(66, 50);
  auto front = CameraFrame::make(66, 50);
  renderVirtualPicture(*back, 7);
  renderVirtualPicture(*front, 7, /*halfTurned=*/true);
  for (int y = 0; y < 50; ++y)
    for (int x = 0; x < 66; ++x)
      ASSERT_EQ(front->row(0, y)[x], back->row(0, 49 - y)[65 - x]) << x << "," << y;
  for (int y = 0; y < 25; ++y)
    for (int x = 0; x < 33; ++x)
      for (int c = 0; c < 2; ++c)
        ASSERT_EQ(front->row(1, y)[2 * x + c], back->row(1, 24 - y)[2 * (32 - x) + c])
            << x << "," << y;
}

// The corner patches are an eighth of the picture in size: red, green, blue and white.
TEST(CameraFrameTest, HdFullRangeVirtualFramesAreBt709FullWithTheirCornerPatches) {
  test::ManualMain main;
  auto sink = std::make_shared<test::CameraFrameRecorder>();
  auto device = virtualCamera(1280, 720, 30, "420f");
  ASSERT_FALSE(device->startStreaming(sink));
  auto frame = sink->frame(0);
  device->stopStreaming();
  ASSERT_TRUE(frame);
  EXPECT_EQ(std::pair(frame->matrix, frame->range),
            std::pair(ColourMatrix::bt709, ColourRange::full));
  auto colour = [](uint8_t r, uint8_t g, uint8_t b) {
    return ycbcrOf(r, g, b, ColourMatrix::bt709, ColourRange::full);
  };
  ASSERT_EQ(std::pair(cornerPatchWidth(1280), cornerPatchHeight(720)), std::pair(160, 90));
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

using test::FakeV4l2Camera;
using test::hex;
using test::planeBytes;

class V4l2StreamTest : public testing::Test {
 protected:
  V4l2StreamTest() {
    fake_->formats = {{V4L2_PIX_FMT_YUYV, {{4, 2}, {8, 4}}},
                      {V4L2_PIX_FMT_NV12, {{4, 2}}},
                      {V4L2_PIX_FMT_MJPEG, {{16, 16}}}};
  }

  // The fake as a device-model camera, active in the "420f" format of that native format and size.
  std::shared_ptr<CaptureDevice> open(const char* native = "YUYV", int32_t width = 4,
                                      int32_t height = 2) {
    auto found = enumerateV4l2Camera(fake_->path, V4l2Backend{fake_, makeLibavMjpegDecoder});
    EXPECT_EQ(found.devices.size(), 1u);
    if (found.devices.empty() || !select(*found.devices[0], native, width, height)) return nullptr;
    return found.devices[0];
  }
  static bool select(CaptureDevice& device, const char* native, int32_t width, int32_t height) {
    for (const auto& f : device.formats()) {
      if (f->nativePixelFormat != native || f->width != width || f->height != height ||
          f->mediaSubType != kPixelFormat420FullRange)
        continue;
      device.lockForConfiguration();
      bool ok = device.setActiveFormat(f);
      device.unlockForConfiguration();
      return ok;
    }
    return false;
  }

  test::ManualMain main_;  // the media clock
  std::shared_ptr<FakeV4l2Camera> fake_ = std::make_shared<FakeV4l2Camera>();
  std::shared_ptr<test::CameraFrameRecorder> sink_ = std::make_shared<test::CameraFrameRecorder>();
};

// Every test's open() finds its format and size among the camera's formats.
TEST_F(V4l2StreamTest, TheCameraHasTheDriversSizesAndMountingWhenItMayBeOpened) {
  fake_->openError = EACCES;
  auto refused = enumerateV4l2Camera(fake_->path, V4l2Backend{fake_, nullptr});
  ASSERT_EQ(refused.problems.size(), 1u);
  EXPECT_EQ(refused.problems[0].reason.code, CameraErrorCode::permissionDenied);
  EXPECT_NE(refused.problems[0].reason.message.find("'video' group"), std::string::npos);

  fake_->openError = 0;
  fake_->controls = {{V4L2_CID_CAMERA_ORIENTATION, V4L2_CAMERA_ORIENTATION_BACK},
                     {V4L2_CID_CAMERA_SENSOR_ROTATION, 90}};
  auto device = open();
  ASSERT_TRUE(device);
  EXPECT_EQ(device->formats().size(), 8u);  // four sizes, each as 420v and 420f
  EXPECT_EQ(device->mounting(), (CameraMounting{CameraFacing::back, 90}));
  EXPECT_EQ(device->position(), AVCaptureDevicePositionBack);
}

// 4x2 YUYV (Y0 Cb Y1 Cr) in rows padded to 12 bytes: chroma of the two rows averaged, halves
// rounded up; the driver's REC709 is bt709 video range; the stamp is 10 ms before 500.
TEST_F(V4l2StreamTest, AYuyvFrameReachesTheSinkAsNv12WithTheDriversTagsAndTime) {
  fake_->padding = 4;
  auto device = open();
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  EXPECT_EQ(std::pair(fake_->interval.numerator, fake_->interval.denominator), std::pair(1u, 30u));
  ASSERT_TRUE(fake_->deliver(
      hex("0a 64 14 c8 1e 6e 28 d2 eeeeeeee 32 66 3c cc 46 6f 50 d7 eeeeeeee"), /*time=*/499.99));
  auto frame = sink_->frame(0);
  ASSERT_TRUE(frame);
  EXPECT_EQ(planeBytes(*frame, 0), hex("0a 14 1e 28 32 3c 46 50"));
  EXPECT_EQ(planeBytes(*frame, 1), hex("65 ca 6f d5"));
  EXPECT_EQ(std::pair(frame->matrix, frame->range),
            std::pair(ColourMatrix::bt709, ColourRange::video));
  EXPECT_NEAR(frame->presentationTime, main_.clock().now() - 0.01, 1e-6);
}

// A 16x16 4:2:0 picture of smooth gradients, JPEG-coded by libavcodec at a fine quantiser.
uint8_t gradient(int plane, int x, int y) {
  return static_cast<uint8_t>(plane == 0   ? 16 + x * 8 + y * 4
                              : plane == 1 ? 90 + x * 4
                                           : 160 - y * 4);
}

std::vector<uint8_t> encodeJpeg() {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
  if (!codec) return {};
  AVCodecContext* c = avcodec_alloc_context3(codec);
  c->width = c->height = 16;
  c->pix_fmt = AV_PIX_FMT_YUVJ420P;
  c->color_range = AVCOL_RANGE_JPEG;
  c->time_base = {1, 30};
  c->flags |= AV_CODEC_FLAG_QSCALE;
  c->global_quality = FF_QP2LAMBDA * 1;
  std::vector<uint8_t> out;
  AVFrame* f = av_frame_alloc();
  AVPacket* packet = av_packet_alloc();
  f->format = c->pix_fmt;
  f->width = f->height = 16;
  f->quality = c->global_quality;
  if (avcodec_open2(c, codec, nullptr) == 0 && av_frame_get_buffer(f, 0) == 0) {
    for (int p = 0; p < 3; ++p)
      for (int y = 0; y < (p ? 8 : 16); ++y)
        for (int x = 0; x < (p ? 8 : 16); ++x)
          f->data[p][y * f->linesize[p] + x] = gradient(p, x, y);
    if (avcodec_send_frame(c, f) == 0 && avcodec_receive_packet(c, packet) == 0)
      out.assign(packet->data, packet->data + packet->size);
  }
  av_packet_free(&packet);
  av_frame_free(&f);
  avcodec_free_context(&c);
  return out;
}

// Within the loss of the coding, in a JPEG's own colour whatever the driver says; a buffer
// flagged broken and a JPEG cut short are skipped.
TEST_F(V4l2StreamTest, MjpegFramesAreDecodedToTheirNv12AndBrokenOnesSkipped) {
  auto jpeg = encodeJpeg();
  ASSERT_FALSE(jpeg.empty()) << "libavcodec could not make the test's JPEG";
  auto device = open("MJPG", 16, 16);
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  ASSERT_TRUE(fake_->deliver(jpeg, 0, V4L2_BUF_FLAG_ERROR));
  ASSERT_TRUE(fake_->deliver(hex("ff d8 00 01")));
  ASSERT_TRUE(fake_->deliver(jpeg));
  auto frame = sink_->frame(0);
  ASSERT_TRUE(frame);
  auto luma = planeBytes(*frame, 0), chroma = planeBytes(*frame, 1);
  ASSERT_EQ(luma.size(), 256u);
  ASSERT_EQ(chroma.size(), 128u);
  for (int i = 0; i < 256; ++i) EXPECT_NEAR(luma[i], gradient(0, i % 16, i / 16), 3) << i;
  for (int i = 0; i < 128; ++i)
    EXPECT_NEAR(chroma[i], gradient(1 + i % 2, i / 2 % 8, i / 16), 3) << i;
  EXPECT_EQ(std::tuple(frame->matrix, frame->range, sink_->count(), sink_->ends()),
            std::tuple(ColourMatrix::bt601, ColourRange::full, size_t{1}, size_t{0}));
}

// A node of the multi-planar API only: NV12 in two planes (rows padded to 8 bytes, the chroma
// after a data offset of the driver's own) and then UYVY in one plane both give the NV12 of
// the YUYV test above; the stop unmaps every plane.
TEST_F(V4l2StreamTest, AMultiPlanarCameraStreamsNv12InTwoPlanesAndUyvyInOne) {
  fake_->multiplanar = true;
  fake_->padding = 4;
  fake_->formats = {{V4L2_PIX_FMT_NV12M, {{4, 2}}}, {V4L2_PIX_FMT_UYVY, {{4, 2}}}};
  auto device = open("NM12", 4, 2);
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  EXPECT_EQ(fake_->mapped, 8);  // four buffers of two planes
  auto seen = [&](size_t i) {
    auto frame = sink_->frame(i);
    ASSERT_TRUE(frame) << i;
    EXPECT_EQ(planeBytes(*frame, 0), hex("0a 14 1e 28 32 3c 46 50")) << i;
    EXPECT_EQ(planeBytes(*frame, 1), hex("65 ca 6f d5")) << i;
    EXPECT_EQ(frame->matrix, ColourMatrix::bt709) << i;
  };
  ASSERT_TRUE(fake_->deliverPlanes(
      {hex("0a 14 1e 28 eeeeeeee 32 3c 46 50 eeeeeeee"), hex("65 ca 6f d5 eeeeeeee")}, {0, 16}));
  seen(0);
  ASSERT_TRUE(select(*device, "UYVY", 4, 2));
  EXPECT_EQ(fake_->mapped, 4);
  ASSERT_TRUE(
      fake_->deliver(hex("64 0a c8 14 6e 1e d2 28 eeeeeeee 66 32 cc 3c 6f 46 d7 50 eeeeeeee")));
  seen(1);
  device->stopStreaming();
  EXPECT_EQ(std::pair(fake_->mapped.load(), fake_->streaming.load()), std::pair(0, false));
}

TEST_F(V4l2StreamTest, ANewFormatRestartsTheStreamAndAStopGivesEverythingBack) {
  auto device = open();
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  ASSERT_TRUE(select(*device, "YUYV", 8, 4));
  EXPECT_TRUE(device->isStreaming());
  ASSERT_TRUE(fake_->deliver(std::vector<uint8_t>(8 * 4 * 2, 128)));
  auto frame = sink_->frame(0);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->width(), 8);

  device->stopStreaming();
  EXPECT_EQ(std::tuple(device->isStreaming(), fake_->streaming.load(), fake_->mapped.load(),
                       fake_->wakeClosed.load()),
            std::tuple(false, false, 0, true));
  EXPECT_FALSE(fake_->deliver({1})) << "buffers still queued after the stop";
  EXPECT_EQ(sink_->ends(), 0u) << "a stop that was asked for is not an end";
  ASSERT_FALSE(device->startStreaming(sink_));  // and it streams again
  EXPECT_EQ(fake_->mapped, 4);
}

// Each refusal in turn on the same camera: the last one left it as it found it.
TEST_F(V4l2StreamTest, ARefusedStartSaysWhyAndLeavesNothingBehind) {
  using enum CameraErrorCode;
  const struct {
    unsigned long request;
    int error;
    CameraErrorCode code;
    const char* text;
  } refusals[] = {
      {VIDIOC_S_FMT, EBUSY, inUse, "in use by another program"},
      {VIDIOC_REQBUFS, EBUSY, inUse, "in use"},
      {VIDIOC_S_FMT, EACCES, permissionDenied, "'video' group"},
      {VIDIOC_QUERYBUF, ENOMEM, failed, "failed to get buffers: Cannot allocate memory"},
      {VIDIOC_STREAMON, EIO, failed, "failed to start streaming: Input/output error"}};
  auto device = open();
  ASSERT_TRUE(device);
  for (const auto& r : refusals) {
    const auto answer = std::exchange(fake_->answers[r.request], FakeV4l2Camera::fails(r.error));
    auto error = device->startStreaming(sink_);
    fake_->answers[r.request] = answer;
    EXPECT_EQ(error.code, r.code) << r.text;
    for (const char* part : {r.text, "/dev/video7"})
      EXPECT_NE(error.message.find(part), std::string::npos) << error.message;
    EXPECT_EQ(error.message.find('\n'), std::string::npos);
    EXPECT_EQ(std::tuple(device->isStreaming(), fake_->streaming.load(), fake_->mapped.load()),
              std::tuple(false, false, 0));
  }
}

// A busy camera leaves the old one streaming; a free one takes over until it vanishes.
TEST_F(V4l2StreamTest, ASessionMovesToTheCameraUntilItVanishes) {
  auto virtualCamera = oxelo::virtualCamera(64, 48, 10, "420f");
  auto v4l2 = open();
  ASSERT_TRUE(v4l2);
  CameraSession session(sink_);
  session.setDevice(virtualCamera);
  ASSERT_FALSE(session.startRunning());
  ASSERT_TRUE(sink_->frame(0));

  auto takeFormat = fake_->answers[VIDIOC_S_FMT];
  fake_->answers[VIDIOC_S_FMT] = FakeV4l2Camera::fails(EBUSY);
  EXPECT_EQ(session.setDevice(v4l2).code, CameraErrorCode::inUse);
  EXPECT_EQ(std::tuple(session.device(), virtualCamera->isStreaming(), session.isRunning()),
            std::tuple(virtualCamera, true, true));

  fake_->answers[VIDIOC_S_FMT] = takeFormat;
  EXPECT_FALSE(session.setDevice(v4l2));
  EXPECT_EQ(std::pair(session.device(), virtualCamera->isStreaming()), std::pair(v4l2, false));
  size_t before = sink_->count();
  ASSERT_TRUE(fake_->deliver(hex("0a 64 14 c8 1e 6e 28 d2 32 66 3c cc 46 6f 50 d7")));
  auto next = sink_->frame(before);
  ASSERT_TRUE(next);
  EXPECT_EQ(next->width(), 4);

  fake_->vanish();
  auto end = sink_->end();
  ASSERT_TRUE(end);
  EXPECT_EQ(end->code, CameraErrorCode::vanished);
  EXPECT_NE(end->message.find("went away while streaming"), std::string::npos) << end->message;
  EXPECT_EQ(std::pair(session.isRunning(), sink_->count()), std::pair(false, before + 1));
  session.stopRunning();
  EXPECT_EQ(std::pair(v4l2->isStreaming(), fake_->mapped.load()), std::pair(false, 0));
}

V4l2FrameInterval every(uint32_t numerator, uint32_t denominator) {
  return {numerator, denominator, numerator, denominator};
}

V4l2Control integer(uint32_t id, int64_t minimum, int64_t maximum, int64_t value = 0) {
  V4l2Control c;
  std::tie(c.id, c.type, c.minimum, c.maximum, c.value) =
      std::tuple(id, V4L2_CTRL_TYPE_INTEGER, minimum, maximum, value);
  return c;
}

// A text menu of these indices, or an integer menu of these values.
V4l2Control menu(uint32_t id, std::vector<int64_t> items, uint32_t type = V4L2_CTRL_TYPE_MENU) {
  auto c = integer(id, 0, 0);
  c.type = type;
  for (uint32_t i = 0; i < items.size(); ++i)
    c.menu.push_back(
        {type == V4L2_CTRL_TYPE_MENU ? static_cast<uint32_t>(items[i]) : i, items[i], ""});
  std::tie(c.minimum, c.maximum) = std::tuple(c.menu.front().index, c.menu.back().index);
  return c;
}

// A USB webcam: YUYV slow, MJPEG fast, H.264 that capture cannot take, the usual UVC controls.
V4l2DeviceInfo webcam() {
  V4l2DeviceInfo info;
  info.busInfo = "usb-0000:00:14.0-3";
  info.formats = {
      {V4L2_PIX_FMT_YUYV,
       "YUYV 4:2:2",
       {{1280, 720, {every(1, 10), every(1, 5)}},
        {640, 480, {every(1, 30), every(1, 15), every(1001, 30000)}}}},
      {V4L2_PIX_FMT_MJPEG,
       "Motion-JPEG",
       {{1280, 720, {every(1, 30)}}, {1920, 1080, {{1, 30, 1, 5}}}}},  // stepwise, 5 to 30
      {V4L2_PIX_FMT_H264, "H.264", {{3840, 2160, {every(1, 30)}}}}};

  auto exposureAuto =
      menu(V4L2_CID_EXPOSURE_AUTO, {V4L2_EXPOSURE_MANUAL, V4L2_EXPOSURE_APERTURE_PRIORITY});
  exposureAuto.value = V4L2_EXPOSURE_APERTURE_PRIORITY;
  auto led = menu(V4L2_CID_FLASH_LED_MODE,
                  {V4L2_FLASH_LED_MODE_NONE, V4L2_FLASH_LED_MODE_FLASH, V4L2_FLASH_LED_MODE_TORCH});
  auto bias = menu(V4L2_CID_AUTO_EXPOSURE_BIAS, {-2000, 0, 1500}, V4L2_CTRL_TYPE_INTEGER_MENU);
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
  using Row = std::tuple<int, int, std::string, std::string, std::vector<double>>;
  const double ntsc = 30000.0 / 1001;
  std::vector<Row> rows;
  for (const auto& f : formats) {
    std::vector<double> rates;
    for (const auto& r : f.videoSupportedFrameRateRanges) rates.push_back(r.maxFrameRate);
    rows.emplace_back(f.width, f.height, f.nativePixelFormat, f.mediaSubType, rates);
    // Limits from the controls: gain 0..255 as ISO, 100 us steps, zoom 500 / 100.
    EXPECT_EQ(std::tuple(f.mediaType, f.maxISO, f.minExposureDuration, f.maxExposureDuration,
                         f.videoMaxZoomFactor),
              std::tuple("vide", 255.0f, CaptureTime::make(3, 10000),
                         CaptureTime::make(2047, 10000), 5.0));
  }
  EXPECT_EQ(rows, (std::vector<Row>{{640, 480, "YUYV", "420v", {15, ntsc, 30}},
                                    {640, 480, "YUYV", "420f", {15, ntsc, 30}},
                                    {1280, 720, "YUYV", "420v", {5, 10}},
                                    {1280, 720, "YUYV", "420f", {5, 10}},
                                    {1280, 720, "MJPG", "420v", {30}},
                                    {1280, 720, "MJPG", "420f", {30}},
                                    {1920, 1080, "MJPG", "420v", {30}},
                                    {1920, 1080, "MJPG", "420f", {30}}}));
  // The stepwise interval is one range, 5 to 30 frames per second.
  const auto& stepwise = formats[7].videoSupportedFrameRateRanges[0];
  EXPECT_EQ(std::tuple(stepwise.minFrameRate, stepwise.minFrameDuration, stepwise.maxFrameDuration),
            std::tuple(5.0, CaptureTime::make(1, 30), CaptureTime::make(1, 5)));
}

TEST(V4l2MappingTest, WritableControlsBecomeCapabilities) {
  auto c = mapV4l2Capabilities(webcam());
  // Modes locked and continuous, exposure custom too.
  EXPECT_EQ(std::tuple(c.focusModes, c.exposureModes, c.whiteBalanceModes),
            std::tuple(5u, 13u, 5u));
  // 2000 K: red / blue = (2000 / 6500)^1.5, so blue = (6500 / 2000)^1.5 = 5.859 over red.
  EXPECT_NEAR(c.maxWhiteBalanceGain, 5.8590, 1e-3);
  EXPECT_EQ(std::pair(c.minExposureTargetBias, c.maxExposureTargetBias), std::pair(-2.0f, 1.5f));
  EXPECT_EQ(
      (std::vector<bool>{c.lockingFocusWithCustomLensPosition,
                         c.lockingWhiteBalanceWithCustomDeviceGains, c.torch, c.lowLightBoost,
                         c.focusPointOfInterest, c.exposurePointOfInterest, c.smoothAutoFocus}),
      (std::vector<bool>{true, true, true, true, false, false, false}));

  // No controls, or only read-only ones: nothing to lock or light.
  auto readOnly = webcam();
  for (auto& control : readOnly.controls) control.flags |= V4L2_CTRL_FLAG_READ_ONLY;
  for (const auto& info : {V4l2DeviceInfo{}, readOnly}) {
    auto n = mapV4l2Capabilities(info);
    EXPECT_EQ(std::tuple(n.focusModes, n.exposureModes, n.lockingFocusWithCustomLensPosition,
                         n.lockingWhiteBalanceWithCustomDeviceGains, n.torch),
              std::tuple(1u, 1u, false, false, false));
  }
}

// The writes these turn into (lens, zoom, exposure time, ISO menu) are in V4l2ControlTest.
TEST(V4l2MappingTest, ControlValuesConvertBothWays) {
  auto focus = integer(V4L2_CID_FOCUS_ABSOLUTE, 0, 250);
  focus.step = 5;
  EXPECT_EQ(std::tuple(lensPositionFromFocus(focus, 0), lensPositionFromFocus(focus, 125),
                       lensPositionFromFocus(focus, 250)),
            std::tuple(0.0f, 0.5f, 1.0f));
  EXPECT_EQ(focusFromLensPosition(focus, 0.515f), 130);  // 128.75 to the step of 5

  auto zoom = integer(V4L2_CID_ZOOM_ABSOLUTE, 100, 500);
  EXPECT_DOUBLE_EQ(zoomFactorFromV4l2(zoom, 100), 1.0);
  EXPECT_DOUBLE_EQ(zoomFactorFromV4l2(zoom, 300), 3.0);
  auto fromZero = integer(V4L2_CID_ZOOM_ABSOLUTE, 0, 10);
  EXPECT_DOUBLE_EQ(maxZoomFactorOf(fromZero), 4.0);
  EXPECT_DOUBLE_EQ(zoomFactorFromV4l2(fromZero, 5), 2.5);
  EXPECT_DOUBLE_EQ(maxZoomFactorOf(integer(V4L2_CID_ZOOM_ABSOLUTE, 1, 1)), 1.0);

  auto exposure = integer(V4L2_CID_EXPOSURE_ABSOLUTE, 3, 2047);
  EXPECT_DOUBLE_EQ(exposureFromV4l2(333).seconds(), 0.0333);
  // Clamped up and down.
  EXPECT_EQ(std::tuple(v4l2FromExposure(exposure, CaptureTime::make(1, 100000)),
                       v4l2FromExposure(exposure, CaptureTime::make(1, 1))),
            std::tuple(3, 2047));
  auto iso = menu(V4L2_CID_ISO_SENSITIVITY, {100, 200, 400, 800}, V4L2_CTRL_TYPE_INTEGER_MENU);
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

TEST(V4l2PositionTest, UnknownCamerasFillTheBackFirst) {
  constexpr auto kNone = AVCaptureDevicePositionUnspecified, kBack = AVCaptureDevicePositionBack,
                 kFront = AVCaptureDevicePositionFront;
  using Positions = std::vector<AVCaptureDevicePosition>;
  const std::pair<Positions, Positions> cameras[] = {
      {{kNone}, {kBack}},
      {{kNone, kNone}, {kBack, kFront}},
      {{kNone, kBack}, {kFront, kBack}},  // a reported back comes first
      {{kFront, kNone}, {kFront, kBack}},
      {{kNone, kNone, kNone}, {kBack, kFront, kFront}}};
  for (const auto& [reported, assigned] : cameras)
    EXPECT_EQ(assignV4l2Positions(reported), assigned) << reported.size() << " " << reported[0];
}

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
    EXPECT_EQ(std::pair(colour.matrix, colour.range), std::pair(row.matrix, row.range))
        << row.colorspace << " " << row.encoding << " " << row.quantization;
  }
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
