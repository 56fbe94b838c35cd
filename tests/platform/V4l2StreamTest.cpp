#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstdlib>
#include <memory>

#include "platform/camera/CameraSession.h"
#include "platform/camera/V4l2CameraBackend.h"
#include "platform/camera/V4l2Mapping.h"
#include "platform/camera/VirtualCameraBackend.h"
#include "platform/camera/codec/LibavMjpegDecoder.h"
#include "tests/platform/CameraFrameRecorder.h"
#include "tests/platform/V4l2StreamFake.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using test::FakeV4l2Camera;

std::vector<uint8_t> plane(const CameraFrame& frame, int p) {
  auto view = frame.planes()[p];
  std::vector<uint8_t> bytes;
  for (int32_t y = 0; y < view.height; ++y) {
    const uint8_t* row = view.data + static_cast<size_t>(y) * view.stride;
    bytes.insert(bytes.end(), row, row + view.width * view.bytesPerTexel);
  }
  return bytes;
}

class V4l2StreamTest : public testing::Test {
 protected:
  V4l2StreamTest() : fake_(std::make_shared<FakeV4l2Camera>()) {
    fake_->formats = {{V4L2_PIX_FMT_YUYV, {{4, 2}, {8, 4}}},
                      {V4L2_PIX_FMT_NV12, {{4, 2}}},
                      {V4L2_PIX_FMT_MJPEG, {{16, 16}}}};
    fake_->colorspace = V4L2_COLORSPACE_REC709;
  }

  // The fake as a device-model camera, its active format the "420f" one of
  // that native format and size.
  std::shared_ptr<CaptureDevice> open(const char* native = "YUYV", int32_t width = 4,
                                      int32_t height = 2) {
    V4l2Backend backend{fake_, makeLibavMjpegDecoder};
    auto found = enumerateV4l2Camera(fake_->path, backend);
    EXPECT_EQ(found.devices.size(), 1u);
    if (found.devices.empty()) return nullptr;
    auto device = found.devices[0];
    EXPECT_TRUE(select(*device, native, width, height));
    return device;
  }
  static bool select(CaptureDevice& device, const char* native, int32_t width, int32_t height) {
    for (const auto& f : device.formats()) {
      if (f->nativePixelFormat == native && f->width == width && f->height == height &&
          f->mediaSubType == kPixelFormat420FullRange) {
        device.lockForConfiguration();
        bool ok = device.setActiveFormat(f);
        device.unlockForConfiguration();
        return ok;
      }
    }
    return false;
  }

  test::ManualMain main_;  // the media clock
  std::shared_ptr<FakeV4l2Camera> fake_;
  std::shared_ptr<test::CameraFrameRecorder> sink_ = std::make_shared<test::CameraFrameRecorder>();
};

// A 4x2 YUYV picture, rows padded to 12 bytes: Y0 Cb Y1 Cr per pixel pair.
const std::vector<uint8_t> kYuyv = {
    10, 100, 20, 200, 30, 110, 40, 210, 0xEE, 0xEE, 0xEE, 0xEE,  //
    50, 102, 60, 204, 70, 111, 80, 215, 0xEE, 0xEE, 0xEE, 0xEE,  //
};

TEST_F(V4l2StreamTest, AYuyvFrameArrivesAsNv12WithTheDriversTagsAndTime) {
  fake_->extraBytesPerLine = 4;
  auto device = open();
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  EXPECT_EQ(fake_->lastFormat().fmt.pix.pixelformat, V4L2_PIX_FMT_YUYV);
  EXPECT_EQ(fake_->lastInterval().numerator, 1u);
  EXPECT_EQ(fake_->lastInterval().denominator, 30u);
  EXPECT_EQ(fake_->mapped(), 4);
  ASSERT_TRUE(fake_->deliver(kYuyv, /*timestamp=*/499.99));  // 10 ms before "now" (500)

  auto frame = sink_->frame(0);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->width(), 4);
  EXPECT_EQ(frame->height(), 2);
  EXPECT_EQ(plane(*frame, 0), (std::vector<uint8_t>{10, 20, 30, 40, 50, 60, 70, 80}));
  // Chroma of the two rows averaged, halves rounded up.
  EXPECT_EQ(plane(*frame, 1), (std::vector<uint8_t>{101, 202, 111, 213}));
  EXPECT_EQ(frame->matrix, ColourMatrix::bt709);
  EXPECT_EQ(frame->range, ColourRange::video);
  EXPECT_NEAR(frame->presentationTime, main_.clock().now() - 0.01, 1e-6);
  device->stopStreaming();
}

TEST_F(V4l2StreamTest, AnNv12FrameIsTakenAsItIsWithoutItsRowPadding) {
  fake_->extraBytesPerLine = 2;
  auto device = open("NV12");
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  ASSERT_TRUE(fake_->deliver({1, 2, 3, 4, 0, 0, 5, 6, 7, 8, 0, 0, 9, 10, 11, 12, 0, 0}));
  auto frame = sink_->frame(0);
  ASSERT_TRUE(frame);
  EXPECT_EQ(plane(*frame, 0), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(plane(*frame, 1), (std::vector<uint8_t>{9, 10, 11, 12}));
}

// A 16x16 4:2:0 picture with smooth gradients, JPEG-coded by libavcodec at
// a fine quantiser: the decoded frame must give back the planes it was made
// from, within the loss of the coding.
struct Picture {
  std::vector<uint8_t> y, cb, cr;
};
Picture gradient() {
  Picture p;
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) p.y.push_back(static_cast<uint8_t>(16 + x * 8 + y * 4));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) {
      p.cb.push_back(static_cast<uint8_t>(90 + x * 4));
      p.cr.push_back(static_cast<uint8_t>(160 - y * 4));
    }
  return p;
}

std::vector<uint8_t> encodeJpeg(const Picture& picture) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
  if (!codec) return {};
  AVCodecContext* c = avcodec_alloc_context3(codec);
  c->width = 16;
  c->height = 16;
  c->pix_fmt = AV_PIX_FMT_YUVJ420P;
  c->color_range = AVCOL_RANGE_JPEG;
  c->time_base = {1, 30};
  c->flags |= AV_CODEC_FLAG_QSCALE;
  c->global_quality = FF_QP2LAMBDA * 1;
  std::vector<uint8_t> out;
  if (avcodec_open2(c, codec, nullptr) == 0) {
    AVFrame* f = av_frame_alloc();
    f->format = c->pix_fmt;
    f->width = 16;
    f->height = 16;
    f->quality = c->global_quality;
    av_frame_get_buffer(f, 0);
    for (int y = 0; y < 16; ++y)
      std::memcpy(f->data[0] + y * f->linesize[0], &picture.y[y * 16], 16);
    for (int y = 0; y < 8; ++y) {
      std::memcpy(f->data[1] + y * f->linesize[1], &picture.cb[y * 8], 8);
      std::memcpy(f->data[2] + y * f->linesize[2], &picture.cr[y * 8], 8);
    }
    AVPacket* packet = av_packet_alloc();
    if (avcodec_send_frame(c, f) == 0 && avcodec_receive_packet(c, packet) == 0)
      out.assign(packet->data, packet->data + packet->size);
    av_packet_free(&packet);
    av_frame_free(&f);
  }
  avcodec_free_context(&c);
  return out;
}

TEST_F(V4l2StreamTest, AnMjpegFrameIsDecodedToTheNv12ItWasMadeFrom) {
  auto picture = gradient();
  auto jpeg = encodeJpeg(picture);
  ASSERT_FALSE(jpeg.empty()) << "libavcodec could not make the test's JPEG";
  auto device = open("MJPG", 16, 16);
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  ASSERT_TRUE(fake_->deliver(jpeg));
  auto frame = sink_->frame(0);
  ASSERT_TRUE(frame);
  auto luma = plane(*frame, 0);
  auto chroma = plane(*frame, 1);
  ASSERT_EQ(luma.size(), 256u);
  ASSERT_EQ(chroma.size(), 128u);
  for (size_t i = 0; i < 256; ++i) EXPECT_NEAR(luma[i], picture.y[i], 3) << "luma " << i;
  for (size_t i = 0; i < 64; ++i) {
    EXPECT_NEAR(chroma[2 * i], picture.cb[i], 3) << "Cb " << i;
    EXPECT_NEAR(chroma[2 * i + 1], picture.cr[i], 3) << "Cr " << i;
  }
  // A JPEG's own colour, whatever the driver says (REC709 here).
  EXPECT_EQ(frame->matrix, ColourMatrix::bt601);
  EXPECT_EQ(frame->range, ColourRange::full);
}

TEST_F(V4l2StreamTest, BrokenBuffersAndBrokenJpegsAreSkippedAndTheStreamGoesOn) {
  auto device = open("MJPG", 16, 16);
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  auto jpeg = encodeJpeg(gradient());
  ASSERT_TRUE(fake_->deliver(jpeg, 0, V4L2_BUF_FLAG_ERROR));
  ASSERT_TRUE(fake_->deliver({0xFF, 0xD8, 0x00, 0x01}));
  ASSERT_TRUE(fake_->deliver(jpeg));
  ASSERT_TRUE(sink_->frame(0));
  EXPECT_EQ(sink_->count(), 1u);
  EXPECT_EQ(sink_->ends(), 0u);
}

TEST_F(V4l2StreamTest, StopGivesEveryBufferBack) {
  auto device = open();
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  ASSERT_TRUE(fake_->streaming());
  ASSERT_TRUE(fake_->deliver(kYuyv));
  ASSERT_TRUE(sink_->frame(0));
  device->stopStreaming();
  EXPECT_FALSE(device->isStreaming());
  EXPECT_FALSE(fake_->streaming());
  EXPECT_EQ(fake_->mapped(), 0);
  EXPECT_TRUE(fake_->closed(FakeV4l2Camera::kWakeFd));
  EXPECT_FALSE(fake_->deliver(kYuyv)) << "buffers still queued after the stop";
  EXPECT_EQ(sink_->ends(), 0u) << "a stop that was asked for is not an end";
  // And it streams again.
  ASSERT_FALSE(device->startStreaming(sink_));
  EXPECT_EQ(fake_->mapped(), 4);
}

TEST_F(V4l2StreamTest, AFormatChangeWhileStreamingRestartsInTheNewFormat) {
  auto device = open();
  ASSERT_TRUE(device);
  ASSERT_FALSE(device->startStreaming(sink_));
  ASSERT_TRUE(select(*device, "YUYV", 8, 4));
  EXPECT_TRUE(device->isStreaming());
  EXPECT_EQ(fake_->calls(VIDIOC_STREAMON), 2);
  EXPECT_EQ(fake_->lastFormat().fmt.pix.width, 8u);
  ASSERT_TRUE(fake_->deliver(std::vector<uint8_t>(8 * 4 * 2, 128)));
  auto frame = sink_->frame(0);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->width(), 8);
  EXPECT_EQ(frame->height(), 4);
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
  fake_->fail[GetParam().request] = GetParam().error;
  auto error = device->startStreaming(sink_);
  EXPECT_EQ(error.code, GetParam().code);
  EXPECT_NE(error.message.find(GetParam().text), std::string::npos) << error.message;
  EXPECT_NE(error.message.find("/dev/video7"), std::string::npos) << error.message;
  EXPECT_EQ(error.message.find('\n'), std::string::npos);
  EXPECT_FALSE(device->isStreaming());
  EXPECT_FALSE(fake_->streaming());
  EXPECT_EQ(fake_->mapped(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Errors, V4l2StreamRefusalTest,
    testing::Values(RefusalCase{"FormatBusy", VIDIOC_S_FMT, EBUSY, CameraErrorCode::inUse,
                                "in use by another program"},
                    RefusalCase{"BuffersBusy", VIDIOC_REQBUFS, EBUSY, CameraErrorCode::inUse,
                                "in use"},
                    RefusalCase{"FormatForbidden", VIDIOC_S_FMT, EACCES,
                                CameraErrorCode::permissionDenied, "'video' group"},
                    RefusalCase{"MapFails", VIDIOC_QUERYBUF, ENOMEM, CameraErrorCode::failed,
                                "failed to get buffers: Cannot allocate memory"},
                    RefusalCase{"StreamOnFails", VIDIOC_STREAMON, EIO, CameraErrorCode::failed,
                                "failed to start streaming: Input/output error"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(V4l2StreamTest, ACameraThatMayNotBeOpenedNamesTheVideoGroup) {
  fake_->openError = EACCES;
  auto found = enumerateV4l2Camera(fake_->path, V4l2Backend{fake_, nullptr});
  EXPECT_TRUE(found.devices.empty());
  ASSERT_EQ(found.problems.size(), 1u);
  EXPECT_EQ(found.problems[0].reason.code, CameraErrorCode::permissionDenied);
  EXPECT_NE(found.problems[0].reason.message.find("'video' group"), std::string::npos);
}

TEST_F(V4l2StreamTest, ACameraThatVanishesEndsTheSessionsStreamWithItsMessage) {
  auto device = open();
  ASSERT_TRUE(device);
  CameraSession session(sink_);
  session.setDevice(device);
  ASSERT_FALSE(session.startRunning());
  ASSERT_TRUE(fake_->deliver(kYuyv));
  ASSERT_TRUE(sink_->frame(0));
  fake_->vanish();
  auto end = sink_->end();
  ASSERT_TRUE(end);
  EXPECT_EQ(end->code, CameraErrorCode::vanished);
  EXPECT_NE(end->message.find("went away while streaming"), std::string::npos) << end->message;
  EXPECT_FALSE(session.isRunning());
  EXPECT_EQ(sink_->count(), 1u);
  session.stopRunning();
  device->stopStreaming();
  EXPECT_EQ(fake_->mapped(), 0);
}

TEST_F(V4l2StreamTest, ExchangingTheCameraWhileRunningMovesTheStreamOrKeepsTheOldOne) {
  std::string error;
  auto specs =
      parseVirtualCameras({{"cameras",
                            {{{"type", "wide"},
                              {"position", "back"},
                              {"formats", {{{"width", 64}, {"height", 48}, {"fps", 10}}}}}}}},
                          error);
  ASSERT_TRUE(specs) << error;
  auto virtualCamera = makeVirtualCamera(std::move((*specs)[0]));
  auto v4l2 = open();
  ASSERT_TRUE(v4l2);

  CameraSession session(sink_);
  session.setDevice(virtualCamera);
  ASSERT_FALSE(session.startRunning());
  auto first = sink_->frame(0);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->width(), 64);

  // The V4L2 camera is busy: the exchange fails, the virtual one goes on.
  fake_->fail[VIDIOC_S_FMT] = EBUSY;
  EXPECT_EQ(session.setDevice(v4l2).code, CameraErrorCode::inUse);
  EXPECT_EQ(session.device(), virtualCamera);
  EXPECT_TRUE(virtualCamera->isStreaming());
  EXPECT_TRUE(session.isRunning());

  fake_->fail.clear();
  EXPECT_FALSE(session.setDevice(v4l2));
  EXPECT_EQ(session.device(), v4l2);
  EXPECT_FALSE(virtualCamera->isStreaming());
  size_t before = sink_->count();
  ASSERT_TRUE(fake_->deliver(kYuyv));
  auto next = sink_->frame(before);
  ASSERT_TRUE(next);
  EXPECT_EQ(next->width(), 4);
  session.stopRunning();
  EXPECT_FALSE(v4l2->isStreaming());
}

TEST_F(V4l2StreamTest, TheMountingReachesTheCameraModel) {
  fake_->busInfo = "platform:camera0";
  fake_->controls = {
      {V4L2_CID_CAMERA_ORIENTATION, V4L2_CTRL_TYPE_MENU, V4L2_CAMERA_ORIENTATION_BACK},
      {V4L2_CID_CAMERA_SENSOR_ROTATION, V4L2_CTRL_TYPE_INTEGER, 90}};
  auto device = open();
  ASSERT_TRUE(device);
  EXPECT_EQ(device->mounting(), (CameraMounting{CameraFacing::back, 90}));
  EXPECT_EQ(device->position(), AVCaptureDevicePositionBack);
}

struct MountingCase {
  const char* name;
  const char* bus;
  const char* placement;
  int orientation;  // -1: no control
  int rotation;     // -1: no control
  CameraMounting expected;
};

class V4l2MountingTest : public testing::TestWithParam<MountingCase> {};

TEST_P(V4l2MountingTest, FacingAndRotationComeFromTheControlsElseTheBus) {
  const auto& c = GetParam();
  V4l2DeviceInfo info;
  info.busInfo = c.bus;
  info.placement = c.placement;
  if (c.orientation >= 0)
    info.controls.push_back({V4L2_CID_CAMERA_ORIENTATION,
                             V4L2_CTRL_TYPE_MENU,
                             "",
                             0,
                             2,
                             1,
                             0,
                             c.orientation,
                             V4L2_CTRL_FLAG_READ_ONLY,
                             {}});
  if (c.rotation >= 0)
    info.controls.push_back({V4L2_CID_CAMERA_SENSOR_ROTATION,
                             V4L2_CTRL_TYPE_INTEGER,
                             "",
                             0,
                             360,
                             1,
                             0,
                             c.rotation,
                             V4L2_CTRL_FLAG_READ_ONLY,
                             {}});
  EXPECT_EQ(v4l2Mounting(info), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, V4l2MountingTest,
    testing::Values(
        MountingCase{"UsbWebcam", "usb-0000:00:14.0-1", "", -1, -1, {CameraFacing::external, 0}},
        MountingCase{"FirmwarePlacement", "platform:cam", "back", -1, -1, {CameraFacing::back, 0}},
        MountingCase{"UsbIgnoresPlacement", "usb-1", "front", -1, -1, {CameraFacing::external, 0}},
        MountingCase{"ControlBeatsPlacement",
                     "platform:cam",
                     "front",
                     V4L2_CAMERA_ORIENTATION_BACK,
                     90,
                     {CameraFacing::back, 90}},
        MountingCase{"ExternalUpsideDown",
                     "usb-2",
                     "",
                     V4L2_CAMERA_ORIENTATION_EXTERNAL,
                     180,
                     {CameraFacing::external, 180}},
        MountingCase{
            "RotationToQuarterTurns", "platform:cam", "", -1, 100, {CameraFacing::external, 90}}),
    [](const auto& info) { return std::string(info.param.name); });

struct ColourCase {
  uint32_t colorspace, encoding, quantization;
  ColourMatrix matrix;
  ColourRange range;
};

class V4l2ColourTest : public testing::TestWithParam<ColourCase> {};

TEST_P(V4l2ColourTest, TagAndRangeFollowTheFormatsColourFields) {
  auto c = GetParam();
  auto colour = v4l2FrameColour(c.colorspace, c.encoding, c.quantization);
  EXPECT_EQ(colour.matrix, c.matrix);
  EXPECT_EQ(colour.range, c.range);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, V4l2ColourTest,
    testing::Values(ColourCase{V4L2_COLORSPACE_DEFAULT, V4L2_YCBCR_ENC_DEFAULT,
                               V4L2_QUANTIZATION_DEFAULT, ColourMatrix::bt601, ColourRange::video},
                    ColourCase{V4L2_COLORSPACE_REC709, V4L2_YCBCR_ENC_DEFAULT,
                               V4L2_QUANTIZATION_DEFAULT, ColourMatrix::bt709, ColourRange::video},
                    ColourCase{V4L2_COLORSPACE_SMPTE170M, V4L2_YCBCR_ENC_DEFAULT,
                               V4L2_QUANTIZATION_DEFAULT, ColourMatrix::bt601, ColourRange::video},
                    ColourCase{V4L2_COLORSPACE_JPEG, V4L2_YCBCR_ENC_DEFAULT,
                               V4L2_QUANTIZATION_DEFAULT, ColourMatrix::bt601, ColourRange::full},
                    ColourCase{V4L2_COLORSPACE_SRGB, V4L2_YCBCR_ENC_DEFAULT,
                               V4L2_QUANTIZATION_DEFAULT, ColourMatrix::bt601, ColourRange::video},
                    ColourCase{V4L2_COLORSPACE_REC709, V4L2_YCBCR_ENC_601,
                               V4L2_QUANTIZATION_FULL_RANGE, ColourMatrix::bt601,
                               ColourRange::full},
                    ColourCase{V4L2_COLORSPACE_BT2020, V4L2_YCBCR_ENC_DEFAULT,
                               V4L2_QUANTIZATION_LIM_RANGE, ColourMatrix::bt709,
                               ColourRange::video}),
    [](const auto& info) {
      const auto& c = info.param;
      return "Space" + std::to_string(c.colorspace) + "Enc" + std::to_string(c.encoding) + "Quant" +
             std::to_string(c.quantization);
    });

}  // namespace
}  // namespace oxelo
