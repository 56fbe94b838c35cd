#include "platform/camera/V4l2Stream.h"

#include <errno.h>
#include <linux/videodev2.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "platform/camera/V4l2Mapping.h"
#include "platform/dispatch/Clock.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

std::string fourccName(uint32_t fourcc) {
  std::string s;
  for (int i = 0; i < 4; ++i) s += static_cast<char>((fourcc >> (8 * i)) & 0xff);
  return s;
}

bool isJpeg(uint32_t fourcc) { return fourcc == V4L2_PIX_FMT_MJPEG || fourcc == V4L2_PIX_FMT_JPEG; }

uint32_t planesOf(uint32_t fourcc) { return fourcc == V4L2_PIX_FMT_NV12M ? 2 : 1; }

// The packed 4:2:2 layouts and their byte order.
std::optional<PackedOrder> packedOrderOf(uint32_t fourcc) {
  switch (fourcc) {
    case V4L2_PIX_FMT_YUYV:
      return PackedOrder::yuyv;
    case V4L2_PIX_FMT_UYVY:
      return PackedOrder::uyvy;
    case V4L2_PIX_FMT_YVYU:
      return PackedOrder::yvyu;
    case V4L2_PIX_FMT_VYUY:
      return PackedOrder::vyuy;
  }
  return std::nullopt;
}

bool isConvertible(uint32_t fourcc, bool multiplanar) {
  switch (fourcc) {
    case V4L2_PIX_FMT_NV12:
    case V4L2_PIX_FMT_NV21:
    case V4L2_PIX_FMT_YUV420:
    case V4L2_PIX_FMT_YVU420:
      return true;
    case V4L2_PIX_FMT_NV12M:
      return multiplanar;
  }
  return packedOrderOf(fourcc).has_value();
}

// What the driver answered a format with, from either API.
struct FormatAnswer {
  uint32_t fourcc, width, height, planes;
  std::array<uint32_t, V4l2Stream::kMaxPlanes> bytesPerLine;
  uint32_t colorspace, ycbcrEncoding, quantization;
};

FormatAnswer answerOf(const v4l2_pix_format& pix) {
  return {pix.pixelformat,    pix.width,      pix.height,    1,
          {pix.bytesperline}, pix.colorspace, pix.ycbcr_enc, pix.quantization};
}

FormatAnswer answerOf(const v4l2_pix_format_mplane& mp) {
  return {mp.pixelformat,
          mp.width,
          mp.height,
          mp.num_planes,
          {mp.plane_fmt[0].bytesperline, mp.plane_fmt[1].bytesperline},
          mp.colorspace,
          mp.ycbcr_enc,
          mp.quantization};
}

}  // namespace

V4l2Stream::V4l2Stream(std::shared_ptr<V4l2Syscalls> syscalls, int fd, std::string location,
                       bool multiplanar, MjpegDecoderFactory mjpeg)
    : sys_(std::move(syscalls)),
      fd_(fd),
      location_(std::move(location)),
      multiplanar_(multiplanar),
      mjpegFactory_(std::move(mjpeg)) {}

V4l2Stream::~V4l2Stream() { stop(); }

uint32_t V4l2Stream::bufferType() const {
  return multiplanar_ ? V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE : V4L2_BUF_TYPE_VIDEO_CAPTURE;
}

CameraError V4l2Stream::fail(int error, const std::string& what) {
  auto result = CameraError::fromErrno(error, location_, what);
  release();
  return result;
}

CameraError V4l2Stream::start(uint32_t fourcc, int32_t width, int32_t height,
                              CaptureTime frameDuration, std::weak_ptr<CameraFrameSink> sink) {
  if (started_)
    return {CameraErrorCode::failed, "the camera " + location_ + " is already streaming"};
  if (isJpeg(fourcc)) {
    mjpeg_ = mjpegFactory_ ? mjpegFactory_() : nullptr;
    if (!mjpeg_)
      return {CameraErrorCode::unsupported,
              "the camera " + location_ + " sends MJPEG, and this program has no MJPEG decoder"};
  } else if (!isConvertible(fourcc, multiplanar_)) {
    return {CameraErrorCode::unsupported,
            "the camera " + location_ + " format " + fourccName(fourcc) + " cannot be converted"};
  }

  v4l2_format format{};
  format.type = bufferType();
  if (multiplanar_) {
    auto& mp = format.fmt.pix_mp;
    mp.width = static_cast<uint32_t>(width);
    mp.height = static_cast<uint32_t>(height);
    mp.pixelformat = fourcc;
    mp.field = V4L2_FIELD_NONE;
    mp.num_planes = static_cast<uint8_t>(planesOf(fourcc));
  } else {
    format.fmt.pix.width = static_cast<uint32_t>(width);
    format.fmt.pix.height = static_cast<uint32_t>(height);
    format.fmt.pix.pixelformat = fourcc;
    format.fmt.pix.field = V4L2_FIELD_NONE;
  }
  if (sys_->xioctl(fd_, VIDIOC_S_FMT, &format) != 0) return fail(errno, "take the format");
  const FormatAnswer answer = multiplanar_ ? answerOf(format.fmt.pix_mp) : answerOf(format.fmt.pix);
  if (answer.fourcc != fourcc || static_cast<int32_t>(answer.width) != width ||
      static_cast<int32_t>(answer.height) != height || answer.planes != planesOf(fourcc)) {
    release();
    return {CameraErrorCode::unsupported,
            "the camera " + location_ + " gives " + std::to_string(answer.width) + "x" +
                std::to_string(answer.height) + " " + fourccName(answer.fourcc) + " in " +
                std::to_string(answer.planes) + " plane(s) when asked for " +
                std::to_string(width) + "x" + std::to_string(height) + " " + fourccName(fourcc)};
  }
  fourcc_ = fourcc;
  width_ = width;
  height_ = height;
  planeCount_ = answer.planes;
  for (uint32_t p = 0; p < planeCount_; ++p) {
    bytesPerLine_[p] = static_cast<int32_t>(answer.bytesPerLine[p]);
    // A driver that leaves the row length to us packs the rows.
    if (bytesPerLine_[p] == 0)
      bytesPerLine_[p] = p > 0                   ? (width + 1) / 2 * 2
                         : packedOrderOf(fourcc) ? (width + 1) / 2 * 4
                                                 : width;
  }
  auto colour = v4l2FrameColour(answer.colorspace, answer.ycbcrEncoding, answer.quantization);
  matrix_ = colour.matrix;
  range_ = colour.range;

  if (frameDuration.isValid()) {
    v4l2_streamparm parm{};
    parm.type = bufferType();
    parm.parm.capture.timeperframe.numerator = static_cast<uint32_t>(frameDuration.value);
    parm.parm.capture.timeperframe.denominator = static_cast<uint32_t>(frameDuration.timescale);
    // A driver without a settable interval keeps its own rate.
    if (sys_->xioctl(fd_, VIDIOC_S_PARM, &parm) != 0 && errno != ENOTTY && errno != EINVAL)
      return fail(errno, "take the frame rate");
  }

  v4l2_requestbuffers request{};
  request.count = kBufferCount;
  request.type = bufferType();
  request.memory = V4L2_MEMORY_MMAP;
  if (sys_->xioctl(fd_, VIDIOC_REQBUFS, &request) != 0) return fail(errno, "get buffers");
  if (request.count == 0)
    return {CameraErrorCode::failed, "the camera " + location_ + " gave no buffers"};
  buffers_.resize(request.count);  // from here release() gives them back
  for (uint32_t i = 0; i < request.count; ++i) {
    v4l2_plane planes[VIDEO_MAX_PLANES]{};
    v4l2_buffer b{};
    b.type = bufferType();
    b.memory = V4L2_MEMORY_MMAP;
    b.index = i;
    if (multiplanar_) {
      b.m.planes = planes;
      b.length = VIDEO_MAX_PLANES;
    }
    if (sys_->xioctl(fd_, VIDIOC_QUERYBUF, &b) != 0) return fail(errno, "get buffers");
    if (multiplanar_ && b.length != planeCount_) return fail(EINVAL, "get buffers");
    for (uint32_t p = 0; p < planeCount_; ++p) {
      const size_t length = multiplanar_ ? planes[p].length : b.length;
      const auto offset = static_cast<off_t>(multiplanar_ ? planes[p].m.mem_offset : b.m.offset);
      void* address = sys_->mmap(length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, offset);
      if (address == MAP_FAILED) return fail(errno, "map its buffers");
      buffers_[i][p] = {address, length};
    }
    if (sys_->xioctl(fd_, VIDIOC_QBUF, &b) != 0) return fail(errno, "queue its buffers");
  }
  int type = static_cast<int>(bufferType());
  if (sys_->xioctl(fd_, VIDIOC_STREAMON, &type) != 0) return fail(errno, "start streaming");
  streamOn_ = true;
  wakeFd_ = sys_->makeWakeFd();
  if (wakeFd_ < 0) return fail(errno, "start streaming");
  sink_ = std::move(sink);
  started_ = true;
  skipped_ = 0;
  thread_ = std::thread([this] { run(); });
  return {};
}

void V4l2Stream::stop() {
  if (!started_) return;
  sys_->wake(wakeFd_);
  if (thread_.joinable()) thread_.join();
  release();
  started_ = false;
}

void V4l2Stream::release() {
  if (streamOn_) {
    int type = static_cast<int>(bufferType());
    sys_->xioctl(fd_, VIDIOC_STREAMOFF, &type);
    streamOn_ = false;
  }
  for (auto& buffer : buffers_) {
    for (auto& m : buffer)
      if (m.address) sys_->munmap(m.address, m.length);
  }
  if (!buffers_.empty()) {
    v4l2_requestbuffers none{};
    none.type = bufferType();
    none.memory = V4L2_MEMORY_MMAP;
    sys_->xioctl(fd_, VIDIOC_REQBUFS, &none);
    buffers_.clear();
  }
  if (wakeFd_ >= 0) {
    sys_->close(wakeFd_);
    wakeFd_ = -1;
  }
  mjpeg_.reset();
}

void V4l2Stream::run() {
  CameraError error;
  for (;;) {
    pollfd fds[2] = {{fd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    int ready = sys_->poll(fds, 2, -1);
    if (ready < 0) {
      if (errno == EINTR) continue;
      error = CameraError::fromErrno(errno, location_, "stream");
      break;
    }
    if (fds[1].revents) return;  // stop() asked
    if (fds[0].revents & POLLIN) {
      if (!takeBuffer(error)) break;
    } else if (fds[0].revents & (POLLERR | POLLHUP | POLLNVAL)) {
      error = CameraError::vanished(location_);
      break;
    }
  }
  oxlog("Camera - {}", error.message);
  if (auto sink = sink_.lock()) sink->cameraStreamDidEnd(error);
}

bool V4l2Stream::takeBuffer(CameraError& error) {
  v4l2_plane planes[VIDEO_MAX_PLANES]{};
  v4l2_buffer b{};
  b.type = bufferType();
  b.memory = V4L2_MEMORY_MMAP;
  if (multiplanar_) {
    b.m.planes = planes;
    b.length = VIDEO_MAX_PLANES;
  }
  if (sys_->xioctl(fd_, VIDIOC_DQBUF, &b) != 0) {
    if (errno == EAGAIN) return true;
    error = CameraError::fromErrno(errno, location_, "stream");
    return false;
  }
  std::shared_ptr<CameraFrame> frame;
  // The filled part of each plane: a multi-planar driver may put its data
  // after an offset of its own.
  PlaneBytes filled[kMaxPlanes];
  if (b.index < buffers_.size()) {
    for (uint32_t p = 0; p < planeCount_; ++p) {
      const Mapping& m = buffers_[b.index][p];
      const size_t used =
          std::min<size_t>(multiplanar_ ? planes[p].bytesused : b.bytesused, m.length);
      const size_t offset = std::min<size_t>(multiplanar_ ? planes[p].data_offset : 0, used);
      filled[p] = {static_cast<const uint8_t*>(m.address) + offset, used - offset,
                   bytesPerLine_[p]};
    }
  }
  if (b.index < buffers_.size() && !(b.flags & V4L2_BUF_FLAG_ERROR) && filled[0].size > 0) {
    frame = CameraFrame::make(width_, height_);
    frame->matrix = matrix_;
    frame->range = range_;
    std::string why;
    if (!convert(filled, *frame, why)) {
      oxlog("Camera - {}: frame skipped: {}", location_, why);
      frame.reset();
    }
    double stamp =
        static_cast<double>(b.timestamp.tv_sec) + static_cast<double>(b.timestamp.tv_usec) * 1e-6;
    double age = 0;
    if ((b.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC && stamp > 0)
      age = std::max(0.0, sys_->monotonicNow() - stamp);
    if (frame) frame->presentationTime = mediaTime() - age;
  }
  if (!frame) ++skipped_;
  bool requeued = sys_->xioctl(fd_, VIDIOC_QBUF, &b) == 0;
  int requeueError = errno;
  if (frame) {
    if (auto sink = sink_.lock()) sink->cameraDidOutputFrame(frame);
  }
  if (!requeued) {
    error = CameraError::fromErrno(requeueError, location_, "stream");
    return false;
  }
  return true;
}

bool V4l2Stream::convert(const PlaneBytes* planes, CameraFrame& frame, std::string& why) {
  const PlaneBytes& first = planes[0];
  const bool crFirst = fourcc_ == V4L2_PIX_FMT_NV21 || fourcc_ == V4L2_PIX_FMT_YVU420;
  switch (fourcc_) {
    case V4L2_PIX_FMT_NV12:
    case V4L2_PIX_FMT_NV21:
      if (copyNv12(first.data, first.size, first.bytesPerLine, frame, crFirst)) return true;
      break;
    case V4L2_PIX_FMT_YUV420:
    case V4L2_PIX_FMT_YVU420:
      if (planar420ToNv12(first.data, first.size, first.bytesPerLine, crFirst, frame)) return true;
      break;
    case V4L2_PIX_FMT_NV12M:
      if (copyNv12Planes(first, planes[1], frame)) return true;
      why = std::to_string(first.size) + " and " + std::to_string(planes[1].size) +
            " bytes are too few for the picture";
      return false;
    case V4L2_PIX_FMT_MJPEG:
    case V4L2_PIX_FMT_JPEG:
      return mjpeg_->decode(first.data, first.size, frame, why);
    default:
      if (packed422ToNv12(first.data, first.size, first.bytesPerLine, *packedOrderOf(fourcc_),
                          frame))
        return true;
  }
  why = std::to_string(first.size) + " bytes are too few for the picture";
  return false;
}

}  // namespace oxelo
