#include "platform/camera/V4l2Stream.h"

#include <errno.h>
#include <linux/videodev2.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#include "platform/camera/Nv12Conversion.h"
#include "platform/camera/V4l2Mapping.h"
#include "platform/dispatch/Clock.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

constexpr uint32_t kType = V4L2_BUF_TYPE_VIDEO_CAPTURE;

std::string fourccName(uint32_t fourcc) {
  std::string s;
  for (int i = 0; i < 4; ++i) s += static_cast<char>((fourcc >> (8 * i)) & 0xff);
  return s;
}

bool isJpeg(uint32_t fourcc) { return fourcc == V4L2_PIX_FMT_MJPEG || fourcc == V4L2_PIX_FMT_JPEG; }

}  // namespace

V4l2Stream::V4l2Stream(std::shared_ptr<V4l2Syscalls> syscalls, int fd, std::string location,
                       MjpegDecoderFactory mjpeg)
    : sys_(std::move(syscalls)),
      fd_(fd),
      location_(std::move(location)),
      mjpegFactory_(std::move(mjpeg)) {}

V4l2Stream::~V4l2Stream() { stop(); }

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
  } else if (fourcc != V4L2_PIX_FMT_NV12 && fourcc != V4L2_PIX_FMT_YUYV) {
    return {CameraErrorCode::unsupported,
            "the camera " + location_ + " format " + fourccName(fourcc) + " cannot be converted"};
  }

  v4l2_format format{};
  format.type = kType;
  format.fmt.pix.width = static_cast<uint32_t>(width);
  format.fmt.pix.height = static_cast<uint32_t>(height);
  format.fmt.pix.pixelformat = fourcc;
  format.fmt.pix.field = V4L2_FIELD_NONE;
  if (sys_->xioctl(fd_, VIDIOC_S_FMT, &format) != 0) return fail(errno, "take the format");
  const auto& pix = format.fmt.pix;
  if (pix.pixelformat != fourcc || static_cast<int32_t>(pix.width) != width ||
      static_cast<int32_t>(pix.height) != height) {
    release();
    return {CameraErrorCode::unsupported,
            "the camera " + location_ + " gives " + std::to_string(pix.width) + "x" +
                std::to_string(pix.height) + " " + fourccName(pix.pixelformat) +
                " when asked for " + std::to_string(width) + "x" + std::to_string(height) + " " +
                fourccName(fourcc)};
  }
  fourcc_ = fourcc;
  width_ = width;
  height_ = height;
  bytesPerLine_ = static_cast<int32_t>(pix.bytesperline);
  if (bytesPerLine_ == 0) bytesPerLine_ = fourcc == V4L2_PIX_FMT_YUYV ? width * 2 : width;
  auto colour = v4l2FrameColour(pix.colorspace, pix.ycbcr_enc, pix.quantization);
  matrix_ = colour.matrix;
  range_ = colour.range;

  if (frameDuration.isValid()) {
    v4l2_streamparm parm{};
    parm.type = kType;
    parm.parm.capture.timeperframe.numerator = static_cast<uint32_t>(frameDuration.value);
    parm.parm.capture.timeperframe.denominator = static_cast<uint32_t>(frameDuration.timescale);
    // A driver without a settable interval keeps its own rate.
    if (sys_->xioctl(fd_, VIDIOC_S_PARM, &parm) != 0 && errno != ENOTTY && errno != EINVAL)
      return fail(errno, "take the frame rate");
  }

  v4l2_requestbuffers request{};
  request.count = kBufferCount;
  request.type = kType;
  request.memory = V4L2_MEMORY_MMAP;
  if (sys_->xioctl(fd_, VIDIOC_REQBUFS, &request) != 0) return fail(errno, "get buffers");
  if (request.count == 0)
    return {CameraErrorCode::failed, "the camera " + location_ + " gave no buffers"};
  buffers_.resize(request.count);  // from here release() gives them back
  for (uint32_t i = 0; i < request.count; ++i) {
    v4l2_buffer b{};
    b.type = kType;
    b.memory = V4L2_MEMORY_MMAP;
    b.index = i;
    if (sys_->xioctl(fd_, VIDIOC_QUERYBUF, &b) != 0) return fail(errno, "get buffers");
    void* address = sys_->mmap(b.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, b.m.offset);
    if (address == MAP_FAILED) return fail(errno, "map its buffers");
    buffers_[i] = {address, b.length};
    if (sys_->xioctl(fd_, VIDIOC_QBUF, &b) != 0) return fail(errno, "queue its buffers");
  }
  int type = kType;
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
    int type = kType;
    sys_->xioctl(fd_, VIDIOC_STREAMOFF, &type);
    streamOn_ = false;
  }
  for (auto& m : buffers_) {
    if (m.address) sys_->munmap(m.address, m.length);
  }
  if (!buffers_.empty()) {
    v4l2_requestbuffers none{};
    none.type = kType;
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
  v4l2_buffer b{};
  b.type = kType;
  b.memory = V4L2_MEMORY_MMAP;
  if (sys_->xioctl(fd_, VIDIOC_DQBUF, &b) != 0) {
    if (errno == EAGAIN) return true;
    error = CameraError::fromErrno(errno, location_, "stream");
    return false;
  }
  std::shared_ptr<CameraFrame> frame;
  if (b.index < buffers_.size() && !(b.flags & V4L2_BUF_FLAG_ERROR) && b.bytesused > 0) {
    frame = CameraFrame::make(width_, height_);
    frame->matrix = matrix_;
    frame->range = range_;
    const auto* data = static_cast<const uint8_t*>(buffers_[b.index].address);
    size_t size = std::min<size_t>(b.bytesused, buffers_[b.index].length);
    std::string why;
    if (!convert(data, size, *frame, why)) {
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

bool V4l2Stream::convert(const uint8_t* data, size_t size, CameraFrame& frame, std::string& why) {
  switch (fourcc_) {
    case V4L2_PIX_FMT_NV12:
      if (copyNv12(data, size, bytesPerLine_, frame)) return true;
      break;
    case V4L2_PIX_FMT_YUYV:
      if (yuyvToNv12(data, size, bytesPerLine_, frame)) return true;
      break;
    default:
      return mjpeg_->decode(data, size, frame, why);
  }
  why = std::to_string(size) + " bytes are too few for the picture";
  return false;
}

}  // namespace oxelo
