#pragma once

#include <errno.h>
#include <linux/videodev2.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/camera/V4l2Syscalls.h"

namespace oxelo::test {

// A scripted V4L2 camera behind the system-call seam: it answers the
// description ioctls from the formats and controls a test gives it, takes a
// format, hands out memory buffers for mmap, and delivers into the queued
// buffers exactly the bytes a test passes to deliver(). Failures come from
// `fail` (an errno for an ioctl request, every time) and `openError`;
// vanish() makes the node behave as an unplugged camera. Any thread.
class FakeV4l2Camera final : public V4l2Syscalls {
 public:
  struct Format {
    uint32_t fourcc;
    std::vector<std::pair<uint32_t, uint32_t>> sizes;
  };
  struct Control {
    uint32_t id;
    uint32_t type;
    int32_t value;
  };

  static constexpr int kFd = 7001;
  static constexpr int kWakeFd = 7002;

  // The device, set before it is opened.
  std::string path = "/dev/video7";
  std::string busInfo = "usb-0000:00:14.0-1";
  std::vector<Format> formats;
  std::vector<Control> controls;
  int openError = 0;
  std::map<unsigned long, int> fail;  // ioctl request -> errno
  // What S_FMT answers with.
  uint32_t colorspace = V4L2_COLORSPACE_DEFAULT;
  uint32_t ycbcrEncoding = V4L2_YCBCR_ENC_DEFAULT;
  uint32_t quantization = V4L2_QUANTIZATION_DEFAULT;
  uint32_t extraBytesPerLine = 0;  // row padding
  double monotonic = 500.0;        // monotonicNow()

  // Fills the next buffer the stream has queued; false when none is queued.
  bool deliver(const std::vector<uint8_t>& bytes, double timestamp = 0,
               uint32_t flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC) {
    std::lock_guard lock(mutex_);
    if (queued_.empty()) return false;
    uint32_t index = queued_.front();
    queued_.pop_front();
    auto& buffer = buffers_[index];
    std::memcpy(buffer.data(), bytes.data(), std::min(bytes.size(), buffer.size()));
    v4l2_buffer b{};
    b.index = index;
    b.bytesused = static_cast<uint32_t>(std::min(bytes.size(), buffer.size()));
    b.flags = flags;
    b.timestamp.tv_sec = static_cast<time_t>(timestamp);
    b.timestamp.tv_usec =
        static_cast<suseconds_t>((timestamp - static_cast<double>(b.timestamp.tv_sec)) * 1e6 + 0.5);
    done_.push_back(b);
    changed_.notify_all();
    return true;
  }
  void vanish() {
    std::lock_guard lock(mutex_);
    gone_ = true;
    changed_.notify_all();
  }

  // What happened.
  int calls(unsigned long request) const {
    std::lock_guard lock(mutex_);
    return static_cast<int>(std::count(calls_.begin(), calls_.end(), request));
  }
  v4l2_format lastFormat() const {
    std::lock_guard lock(mutex_);
    return format_;
  }
  v4l2_fract lastInterval() const {
    std::lock_guard lock(mutex_);
    return interval_;
  }
  int mapped() const {
    std::lock_guard lock(mutex_);
    return mapped_;
  }
  bool streaming() const {
    std::lock_guard lock(mutex_);
    return streaming_;
  }
  bool closed(int fd) const {
    std::lock_guard lock(mutex_);
    return std::count(closed_.begin(), closed_.end(), fd) > 0;
  }

  int open(const char* p, int) override {
    if (p != path) return error(ENOENT);
    if (openError) return error(openError);
    return kFd;
  }
  int close(int fd) override {
    std::lock_guard lock(mutex_);
    closed_.push_back(fd);
    return 0;
  }
  int fstat(int, struct stat*) override { return error(ENOSYS); }
  int makeWakeFd() override {
    std::lock_guard lock(mutex_);
    woken_ = false;
    return kWakeFd;
  }
  void wake(int) override {
    std::lock_guard lock(mutex_);
    woken_ = true;
    changed_.notify_all();
  }
  double monotonicNow() override { return monotonic; }

  void* mmap(size_t length, int, int, int fd, off_t offset) override {
    std::lock_guard lock(mutex_);
    size_t index = static_cast<size_t>(offset) / kOffsetStep;
    if (fd != kFd || index >= buffers_.size() || length != buffers_[index].size()) {
      errno = EINVAL;
      return MAP_FAILED;
    }
    ++mapped_;
    return buffers_[index].data();
  }
  int munmap(void*, size_t) override {
    std::lock_guard lock(mutex_);
    --mapped_;
    return 0;
  }

  int poll(pollfd* fds, nfds_t count, int) override {
    std::unique_lock lock(mutex_);
    // A generous bound, so that a broken stream fails its test, not the run.
    changed_.wait_for(lock, std::chrono::seconds(10),
                      [&] { return woken_ || gone_ || !done_.empty(); });
    int ready = 0;
    for (nfds_t i = 0; i < count; ++i) {
      fds[i].revents = 0;
      if (fds[i].fd == kWakeFd && woken_) fds[i].revents = POLLIN;
      if (fds[i].fd == kFd && gone_) fds[i].revents = POLLERR | POLLHUP;
      if (fds[i].fd == kFd && !gone_ && !done_.empty()) fds[i].revents = POLLIN;
      ready += fds[i].revents != 0;
    }
    return ready;
  }

  int ioctl(int fd, unsigned long request, void* arg) override {
    std::lock_guard lock(mutex_);
    calls_.push_back(request);
    if (fd != kFd) return error(EBADF);
    if (auto f = fail.find(request); f != fail.end()) return error(f->second);
    if (gone_ && request != VIDIOC_STREAMOFF && request != VIDIOC_REQBUFS) return error(ENODEV);
    switch (request) {
      case VIDIOC_QUERYCAP: {
        auto* cap = static_cast<v4l2_capability*>(arg);
        *cap = {};
        std::strcpy(reinterpret_cast<char*>(cap->driver), "fake");
        std::strcpy(reinterpret_cast<char*>(cap->card), "Fake Camera");
        std::strncpy(reinterpret_cast<char*>(cap->bus_info), busInfo.c_str(),
                     sizeof cap->bus_info - 1);
        cap->device_caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
        cap->capabilities = cap->device_caps | V4L2_CAP_DEVICE_CAPS;
        return 0;
      }
      case VIDIOC_ENUM_FMT: {
        auto* d = static_cast<v4l2_fmtdesc*>(arg);
        if (d->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || d->index >= formats.size())
          return error(EINVAL);
        d->pixelformat = formats[d->index].fourcc;
        return 0;
      }
      case VIDIOC_ENUM_FRAMESIZES: {
        auto* s = static_cast<v4l2_frmsizeenum*>(arg);
        auto* f = find(s->pixel_format);
        if (!f || s->index >= f->sizes.size()) return error(EINVAL);
        s->type = V4L2_FRMSIZE_TYPE_DISCRETE;
        s->discrete = {f->sizes[s->index].first, f->sizes[s->index].second};
        return 0;
      }
      case VIDIOC_ENUM_FRAMEINTERVALS: {
        auto* i = static_cast<v4l2_frmivalenum*>(arg);
        if (i->index > 0) return error(EINVAL);
        i->type = V4L2_FRMIVAL_TYPE_DISCRETE;
        i->discrete = {1, 30};
        return 0;
      }
      case VIDIOC_QUERYCTRL: {
        auto* q = static_cast<v4l2_queryctrl*>(arg);
        uint32_t after = q->id & ~(V4L2_CTRL_FLAG_NEXT_CTRL | V4L2_CTRL_FLAG_NEXT_COMPOUND);
        const Control* next = nullptr;
        for (const auto& c : controls) {
          if (c.id > after && (!next || c.id < next->id)) next = &c;
        }
        if (!next || !(q->id & V4L2_CTRL_FLAG_NEXT_CTRL)) return error(EINVAL);
        *q = {};
        q->id = next->id;
        q->type = next->type;
        q->maximum = next->type == V4L2_CTRL_TYPE_MENU ? 2 : 360;
        q->step = 1;
        q->flags = V4L2_CTRL_FLAG_READ_ONLY;
        return 0;
      }
      case VIDIOC_QUERYMENU:
        return error(EINVAL);
      case VIDIOC_G_CTRL: {
        auto* c = static_cast<v4l2_control*>(arg);
        for (const auto& have : controls) {
          if (have.id == c->id) {
            c->value = have.value;
            return 0;
          }
        }
        return error(EINVAL);
      }
      case VIDIOC_S_FMT: {
        auto* f = static_cast<v4l2_format*>(arg);
        auto& pix = f->fmt.pix;
        uint32_t bytes = pix.pixelformat == V4L2_PIX_FMT_YUYV ? 2 : 1;
        pix.bytesperline = pix.width * bytes + extraBytesPerLine;
        pix.sizeimage = pix.pixelformat == V4L2_PIX_FMT_NV12 ? pix.bytesperline * pix.height * 3 / 2
                        : pix.pixelformat == V4L2_PIX_FMT_YUYV ? pix.bytesperline * pix.height
                                                               : pix.width * pix.height * 2 + 4096;
        pix.colorspace = colorspace;
        pix.ycbcr_enc = static_cast<uint8_t>(ycbcrEncoding);
        pix.quantization = static_cast<uint8_t>(quantization);
        format_ = *f;
        return 0;
      }
      case VIDIOC_S_PARM: {
        interval_ = static_cast<v4l2_streamparm*>(arg)->parm.capture.timeperframe;
        return 0;
      }
      case VIDIOC_G_PARM: {
        static_cast<v4l2_streamparm*>(arg)->parm.capture.timeperframe = {1, 30};
        return 0;
      }
      case VIDIOC_REQBUFS: {
        auto* r = static_cast<v4l2_requestbuffers*>(arg);
        buffers_.clear();
        queued_.clear();
        done_.clear();
        r->count = std::min<uint32_t>(r->count, 4);
        buffers_.assign(r->count, std::vector<uint8_t>(format_.fmt.pix.sizeimage));
        return 0;
      }
      case VIDIOC_QUERYBUF: {
        auto* b = static_cast<v4l2_buffer*>(arg);
        if (b->index >= buffers_.size()) return error(EINVAL);
        b->length = static_cast<uint32_t>(buffers_[b->index].size());
        b->m.offset = b->index * kOffsetStep;
        return 0;
      }
      case VIDIOC_QBUF: {
        auto* b = static_cast<v4l2_buffer*>(arg);
        if (b->index >= buffers_.size()) return error(EINVAL);
        queued_.push_back(b->index);
        return 0;
      }
      case VIDIOC_DQBUF: {
        if (done_.empty()) return error(EAGAIN);
        auto* b = static_cast<v4l2_buffer*>(arg);
        *b = done_.front();
        b->type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        b->memory = V4L2_MEMORY_MMAP;
        done_.pop_front();
        return 0;
      }
      case VIDIOC_STREAMON:
        streaming_ = true;
        return 0;
      case VIDIOC_STREAMOFF:
        streaming_ = false;
        return 0;
      default:
        return error(ENOTTY);
    }
  }

 private:
  static constexpr size_t kOffsetStep = 1 << 20;
  static int error(int e) {
    errno = e;
    return -1;
  }
  const Format* find(uint32_t fourcc) const {
    for (const auto& f : formats) {
      if (f.fourcc == fourcc) return &f;
    }
    return nullptr;
  }

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<unsigned long> calls_;
  std::vector<std::vector<uint8_t>> buffers_;
  std::deque<uint32_t> queued_;
  std::deque<v4l2_buffer> done_;
  std::vector<int> closed_;
  v4l2_format format_{};
  v4l2_fract interval_{};
  int mapped_ = 0;
  bool streaming_ = false;
  bool woken_ = false;
  bool gone_ = false;
};

}  // namespace oxelo::test
