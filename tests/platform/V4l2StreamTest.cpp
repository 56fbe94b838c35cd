#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <memory>

#include "platform/camera/CameraSession.h"
#include "platform/camera/V4l2CameraBackend.h"
#include "platform/camera/codec/LibavMjpegDecoder.h"
#include "tests/platform/CameraFakes.h"
#include "tests/support/CameraTestSupport.h"
#include "tests/support/TestBytes.h"

namespace oxelo {
namespace {

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

  // The fake as a device-model camera, its active format the "420f" one of
  // that native format and size.
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
  EXPECT_TRUE(refused.devices.empty());
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

// A 4x2 YUYV picture (Y0 Cb Y1 Cr per pixel pair) in rows padded to 12 bytes
// reaches the sink as NV12, its two rows' chroma averaged, halves rounded up.
// The frame carries the colour of the driver's format (REC709: bt709, video
// range) and the age of the buffer's monotonic stamp (10 ms before 500).
TEST_F(V4l2StreamTest, AYuyvFrameReachesTheSinkAsNv12WithTheDriversTagsAndTime) {
  fake_->padding = 4;
  auto device = open();
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  EXPECT_EQ(std::pair(fake_->interval.numerator, fake_->interval.denominator), std::pair(1u, 30u));
  EXPECT_EQ(fake_->mapped, 4);
  ASSERT_TRUE(fake_->deliver(
      hex("0a 64 14 c8 1e 6e 28 d2 eeeeeeee 32 66 3c cc 46 6f 50 d7 eeeeeeee"), /*time=*/499.99));
  auto frame = sink_->frame(0);
  ASSERT_TRUE(frame);
  EXPECT_EQ(planeBytes(*frame, 0), hex("0a 14 1e 28 32 3c 46 50"));
  EXPECT_EQ(planeBytes(*frame, 1), hex("65 ca 6f d5"));
  EXPECT_EQ(frame->matrix, ColourMatrix::bt709);
  EXPECT_EQ(frame->range, ColourRange::video);
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

// The frame gives back the planes the JPEG was made from, within the loss of
// the coding, in a JPEG's own colour whatever the driver says. A buffer the
// driver flags broken and a JPEG cut short are skipped, and the stream goes on.
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
  EXPECT_EQ(frame->matrix, ColourMatrix::bt601);
  EXPECT_EQ(frame->range, ColourRange::full);
  EXPECT_EQ(sink_->count(), 1u);
  EXPECT_EQ(sink_->ends(), 0u);
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
  EXPECT_EQ(frame->height(), 4);

  device->stopStreaming();
  EXPECT_FALSE(device->isStreaming());
  EXPECT_FALSE(fake_->streaming);
  EXPECT_EQ(fake_->mapped, 0);
  EXPECT_TRUE(fake_->wakeClosed);
  EXPECT_FALSE(fake_->deliver({1})) << "buffers still queued after the stop";
  EXPECT_EQ(sink_->ends(), 0u) << "a stop that was asked for is not an end";
  ASSERT_FALSE(device->startStreaming(sink_));  // and it streams again
  EXPECT_EQ(fake_->mapped, 4);
}

struct RefusalCase {
  const char* name;
  unsigned long request;
  int error;
  CameraErrorCode code;
  const char* text;
};

class V4l2StreamRefusalTest : public V4l2StreamTest,
                              public testing::WithParamInterface<RefusalCase> {};

TEST_P(V4l2StreamRefusalTest, ARefusedStartSaysWhyAndLeavesNothingBehind) {
  auto device = open();
  ASSERT_TRUE(device);
  fake_->answers[GetParam().request] = FakeV4l2Camera::fails(GetParam().error);
  auto error = device->startStreaming(sink_);
  EXPECT_EQ(error.code, GetParam().code);
  EXPECT_NE(error.message.find(GetParam().text), std::string::npos) << error.message;
  EXPECT_NE(error.message.find("/dev/video7"), std::string::npos) << error.message;
  EXPECT_EQ(error.message.find('\n'), std::string::npos);
  EXPECT_FALSE(device->isStreaming());
  EXPECT_FALSE(fake_->streaming);
  EXPECT_EQ(fake_->mapped, 0);
}

using enum CameraErrorCode;
INSTANTIATE_TEST_SUITE_P(
    Errors, V4l2StreamRefusalTest,
    testing::Values(
        RefusalCase{"FormatBusy", VIDIOC_S_FMT, EBUSY, inUse, "in use by another program"},
        RefusalCase{"BuffersBusy", VIDIOC_REQBUFS, EBUSY, inUse, "in use"},
        RefusalCase{"FormatForbidden", VIDIOC_S_FMT, EACCES, permissionDenied, "'video' group"},
        RefusalCase{"MapFails", VIDIOC_QUERYBUF, ENOMEM, failed,
                    "failed to get buffers: Cannot allocate memory"},
        RefusalCase{"StreamOnFails", VIDIOC_STREAMON, EIO, failed,
                    "failed to start streaming: Input/output error"}),
    [](const auto& info) { return std::string(info.param.name); });

// The session's camera exchanged while it runs: a busy camera leaves the old
// one streaming; a free one takes over, until it vanishes and ends the stream.
TEST_F(V4l2StreamTest, ASessionMovesToTheCameraUntilItVanishes) {
  auto virtualCamera =
      test::camerasFromJson({{"cameras", {test::cameraJson("wide", "back", {{{64, 48}, 10}})}}})
          ->devices()
          .front();
  auto v4l2 = open();
  ASSERT_TRUE(v4l2);
  CameraSession session(sink_);
  session.setDevice(virtualCamera);
  ASSERT_FALSE(session.startRunning());
  ASSERT_TRUE(sink_->frame(0));
  EXPECT_EQ(sink_->frame(0)->width(), 64);

  auto takeFormat = fake_->answers[VIDIOC_S_FMT];
  fake_->answers[VIDIOC_S_FMT] = FakeV4l2Camera::fails(EBUSY);
  EXPECT_EQ(session.setDevice(v4l2).code, CameraErrorCode::inUse);
  EXPECT_EQ(session.device(), virtualCamera);
  EXPECT_TRUE(virtualCamera->isStreaming());
  EXPECT_TRUE(session.isRunning());

  fake_->answers[VIDIOC_S_FMT] = takeFormat;
  EXPECT_FALSE(session.setDevice(v4l2));
  EXPECT_EQ(session.device(), v4l2);
  EXPECT_FALSE(virtualCamera->isStreaming());
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
  EXPECT_FALSE(session.isRunning());
  EXPECT_EQ(sink_->count(), before + 1);
  session.stopRunning();
  EXPECT_FALSE(v4l2->isStreaming());
  EXPECT_EQ(fake_->mapped, 0);
}

}  // namespace
}  // namespace oxelo
