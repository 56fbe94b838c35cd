#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/camera/CameraError.h"
#include "platform/camera/CameraFrameSink.h"
#include "platform/camera/CaptureTypes.h"
#include "platform/camera/MjpegDecoder.h"
#include "platform/camera/Nv12Conversion.h"
#include "platform/camera/V4l2Syscalls.h"

namespace oxelo {

// Memory-mapped streaming from one open V4L2 capture node, through the
// single-planar API or, for nodes that only have it (common on the cameras
// of phones and boards), the multi-planar one: sets the format and frame
// interval, maps the driver's buffers (each plane of each), and on a thread
// of its own (the camera queue) waits in poll() for each filled buffer,
// makes it an NV12 CameraFrame (NV12 in one or two planes copied, NV21,
// planar 4:2:0 and packed 4:2:2 converted, MJPEG decoded) and hands it to
// the sink. The buffer goes back to the driver before the sink sees the
// frame.
//
// The frame's matrix and range come from the colorspace fields the driver
// answers the format with (an MJPEG picture's from the decoder), and its
// presentation time is the buffer's monotonic time stamp on the media
// clock. A buffer the driver marks as damaged is skipped. When the node
// fails while streaming (a camera unplugged: ENODEV, EIO, POLLERR), the
// sink's cameraStreamDidEnd() gets the error and the thread ends.
//
// start() and stop() from one thread at a time, never from the sink's calls.
class V4l2Stream {
 public:
  // `fd` stays the caller's; the stream does not close it. `multiplanar`:
  // the node's capture type is V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE.
  V4l2Stream(std::shared_ptr<V4l2Syscalls> syscalls, int fd, std::string location, bool multiplanar,
             MjpegDecoderFactory mjpeg);
  ~V4l2Stream();
  V4l2Stream(const V4l2Stream&) = delete;
  V4l2Stream& operator=(const V4l2Stream&) = delete;

  // Streams `fourcc` (V4L2_PIX_FMT_NV12, _NV12M, _NV21, _YUV420, _YVU420,
  // _YUYV, _UYVY, _YVYU, _VYUY, _MJPEG or _JPEG) at width x height, one
  // frame per `frameDuration` where the driver can set it. An error, with
  // nothing left started, when the driver refuses.
  CameraError start(uint32_t fourcc, int32_t width, int32_t height, CaptureTime frameDuration,
                    std::weak_ptr<CameraFrameSink> sink);
  // Ends the stream, waits for the thread and gives the buffers back.
  void stop();
  bool isStarted() const { return started_; }

  // Frames lost to damaged buffers or failed conversions.
  uint64_t framesSkipped() const { return skipped_; }

  static constexpr uint32_t kBufferCount = 4;
  static constexpr uint32_t kMaxPlanes = 2;  // NV12M; every other format has one

 private:
  struct Mapping {
    void* address = nullptr;
    size_t length = 0;
  };
  using Buffer = std::array<Mapping, kMaxPlanes>;
  uint32_t bufferType() const;
  CameraError fail(int error, const std::string& what);
  void release();  // unmaps and frees the buffers
  void run();
  // One filled buffer; false when the node failed (the error is set).
  bool takeBuffer(CameraError& error);
  // `planes`: the filled part of each of the format's planes.
  bool convert(const PlaneBytes* planes, CameraFrame& frame, std::string& why);

  const std::shared_ptr<V4l2Syscalls> sys_;
  const int fd_;
  const std::string location_;
  const bool multiplanar_;
  MjpegDecoderFactory mjpegFactory_;

  // Set by start(), read by the thread.
  uint32_t fourcc_ = 0;
  int32_t width_ = 0, height_ = 0;
  uint32_t planeCount_ = 1;
  std::array<int32_t, kMaxPlanes> bytesPerLine_{};
  ColourMatrix matrix_ = ColourMatrix::bt601;
  ColourRange range_ = ColourRange::video;
  std::vector<Buffer> buffers_;
  std::unique_ptr<MjpegDecoder> mjpeg_;
  std::weak_ptr<CameraFrameSink> sink_;
  int wakeFd_ = -1;
  bool started_ = false;
  bool streamOn_ = false;
  std::atomic<uint64_t> skipped_{0};
  std::thread thread_;
};

}  // namespace oxelo
