#pragma once

#include <errno.h>
#include <linux/videodev2.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/camera/CameraFrameSink.h"
#include "platform/camera/V4l2Syscalls.h"

namespace oxelo::test {

// The visible bytes of a frame's plane (0: luma, 1: chroma pairs), without row padding.
inline std::vector<uint8_t> planeBytes(const CameraFrame& frame, int p) {
  auto view = frame.planes()[p];
  std::vector<uint8_t> bytes;
  for (int32_t y = 0; y < view.height; ++y) {
    const uint8_t* row = view.data + static_cast<size_t>(y) * view.stride;
    bytes.insert(bytes.end(), row, row + view.width * view.bytesPerTexel);
  }
  return bytes;
}

// A frame sink that keeps what it gets and lets a test wait for it (at most 5 s).
class CameraFrameRecorder final : public CameraFrameSink {
 public:
  void cameraDidOutputFrame(const CameraFramePtr& frame) override { keep(frames_, frame); }
  void cameraStreamDidEnd(const CameraError& error) override { keep(ends_, error); }
  CameraFramePtr frame(size_t n) { return waitFor(frames_, n).value_or(nullptr); }  // n from 0
  std::optional<CameraError> end() { return waitFor(ends_, 0); }
  size_t count() { return sizeOf(frames_); }
  size_t ends() { return sizeOf(ends_); }

 private:
  template <class T>
  void keep(std::vector<T>& list, const T& item) {
    std::lock_guard lock(mutex_);
    list.push_back(item);
    changed_.notify_all();
  }
  size_t sizeOf(const auto& list) {
    std::lock_guard lock(mutex_);
    return list.size();
  }
  template <class T>
  std::optional<T> waitFor(const std::vector<T>& list, size_t n) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(5), [&] { return list.size() > n; });
    return list.size() > n ? std::optional(list[n]) : std::nullopt;
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<CameraFramePtr> frames_;
  std::vector<CameraError> ends_;
};

// A scripted V4L2 camera behind the system-call seam. Each ioctl is answered by its entry in
// `answers` (0 or an errno; none: ENOTTY): a test replaces one to make the request fail.
// deliver() fills a buffer as a driver would; vanish() unplugs. Answers run under the lock.
// With `multiplanar` it is a node of the multi-planar API only, NV12M in two planes.
class FakeV4l2Camera final : public V4l2Syscalls {
 public:
  using Answer = std::function<int(void*)>;
  struct Format {
    uint32_t fourcc;
    std::vector<v4l2_frmsize_discrete> sizes;
  };
  // A control as QUERYCTRL and QUERYMENU describe it; a number alone is a read-only integer.
  // `menu`: the indices of a menu, or the values of an integer menu by index.
  struct Control {
    Control(int32_t v = 0) : value(v) {}  // NOLINT: a number is a read-only control
    Control(uint32_t type, int32_t min, int32_t max, int32_t value, std::vector<int64_t> menu = {})
        : value(value), type(type), minimum(min), maximum(max), flags(0), menu(std::move(menu)) {}
    int32_t value;
    uint32_t type = V4L2_CTRL_TYPE_INTEGER;
    int32_t minimum = 0, maximum = 0;
    uint32_t flags = V4L2_CTRL_FLAG_READ_ONLY;
    std::vector<int64_t> menu;
  };
  static constexpr int kFd = 7001, kWakeFd = 7002;
  static Answer fails(int error) {
    return [error](void*) { return error; };
  }

  // Set before the camera is opened.
  std::string path = "/dev/video7";
  std::vector<Format> formats;
  std::map<uint32_t, Control> controls;              // by id
  std::vector<std::pair<uint32_t, int32_t>> writes;  // every VIDIOC_S_CTRL asked, in order
  uint32_t padding = 0;                              // bytes after each row
  bool multiplanar = false;
  int openError = 0;
  std::map<unsigned long, Answer> answers;
  // What the stream asked for and holds.
  v4l2_fract interval{};
  std::atomic<int> mapped = 0;
  std::atomic<bool> streaming = false, wakeClosed = false;

  FakeV4l2Camera() {
    answers = {
        {VIDIOC_QUERYCAP, as<v4l2_capability>([this](auto& c) {
           std::strcpy(reinterpret_cast<char*>(c.bus_info), "usb-1");
           c.capabilities = multiplanar ? V4L2_CAP_VIDEO_CAPTURE_MPLANE : V4L2_CAP_VIDEO_CAPTURE;
         })},
        {VIDIOC_ENUM_FMT, as<v4l2_fmtdesc>([this](auto& d) {
           if (d.index >= formats.size()) return EINVAL;
           d.pixelformat = formats[d.index].fourcc;
           return 0;
         })},
        {VIDIOC_ENUM_FRAMESIZES, as<v4l2_frmsizeenum>([this](auto& s) {
           for (const auto& f : formats) {
             if (f.fourcc != s.pixel_format || s.index >= f.sizes.size()) continue;
             s.type = V4L2_FRMSIZE_TYPE_DISCRETE;
             s.discrete = f.sizes[s.index];
             return 0;
           }
           return EINVAL;
         })},
        {VIDIOC_QUERYCTRL, as<v4l2_queryctrl>([this](auto& q) {
           auto next = controls.upper_bound(q.id & ~V4L2_CTRL_FLAG_NEXT_CTRL);
           if (next == controls.end()) return EINVAL;
           const Control& c = next->second;
           q = {};
           q.id = next->first;
           q.type = c.type;
           q.minimum = c.minimum;
           q.maximum = c.maximum;
           q.step = 1;
           q.flags = c.flags;
           return 0;
         })},
        {VIDIOC_QUERYMENU, as<v4l2_querymenu>([this](auto& m) {
           auto c = controls.find(m.id);
           if (c == controls.end()) return EINVAL;
           const auto& menu = c->second.menu;
           if (c->second.type == V4L2_CTRL_TYPE_INTEGER_MENU) {
             if (m.index >= menu.size()) return EINVAL;
             m.value = menu[m.index];
             return 0;
           }
           return std::find(menu.begin(), menu.end(), m.index) == menu.end() ? EINVAL : 0;
         })},
        {VIDIOC_G_CTRL, as<v4l2_control>([this](auto& c) {
           if (!controls.count(c.id)) return EINVAL;
           c.value = controls[c.id].value;
           return 0;
         })},
        {VIDIOC_S_CTRL, as<v4l2_control>([this](auto& c) {
           writes.emplace_back(c.id, c.value);  // refused ones too
           auto control = controls.find(c.id);
           if (control == controls.end() || control->second.flags & V4L2_CTRL_FLAG_READ_ONLY)
             return EINVAL;
           control->second.value = c.value;
           return 0;
         })},
        {VIDIOC_G_PARM, as<v4l2_streamparm>([](auto& p) {
           p.parm.capture.timeperframe = {1, 30};
         })},
        {VIDIOC_S_PARM,
         as<v4l2_streamparm>([this](auto& p) { interval = p.parm.capture.timeperframe; })},
        {VIDIOC_S_FMT, as<v4l2_format>([this](auto& f) {
           if (f.type != bufferType()) return EINVAL;
           if (multiplanar) {
             auto& mp = f.fmt.pix_mp;
             mp.num_planes = mp.pixelformat == V4L2_PIX_FMT_NV12M ? 2 : 1;
             planeSizes_.clear();
             for (uint32_t p = 0; p < mp.num_planes; ++p) {
               auto& plane = mp.plane_fmt[p];
               plane.bytesperline = mp.width * (packed(mp.pixelformat) ? 2 : 1) + padding;
               plane.sizeimage = plane.bytesperline * (p ? mp.height / 2 : mp.height * 2) + 4096;
               planeSizes_.push_back(plane.sizeimage);
             }
             mp.colorspace = V4L2_COLORSPACE_REC709;
             return 0;
           }
           auto& p = f.fmt.pix;
           p.bytesperline = p.width * (packed(p.pixelformat) ? 2 : 1) + padding;
           p.sizeimage = p.bytesperline * p.height * 2 + 4096;
           planeSizes_ = {p.sizeimage};
           p.colorspace = V4L2_COLORSPACE_REC709;
           return 0;
         })},
        {VIDIOC_REQBUFS, as<v4l2_requestbuffers>([this](auto& r) {
           if (r.type != bufferType()) return EINVAL;
           r.count = std::min(r.count, 4u);
           buffers_.assign(r.count, {});
           for (auto& planes : buffers_)
             for (uint32_t size : planeSizes_) planes.emplace_back(size);
           queued_.clear();
           done_.clear();
           return 0;
         })},
        {VIDIOC_QUERYBUF, as<v4l2_buffer>([this](auto& b) {
           if (b.type != bufferType() || b.index >= buffers_.size()) return EINVAL;
           const auto& planes = buffers_[b.index];
           if (!multiplanar) {
             b.length = static_cast<uint32_t>(planes[0].size());
             b.m.offset = b.index << 20;
             return 0;
           }
           if (b.length < planes.size()) return EINVAL;
           b.length = static_cast<uint32_t>(planes.size());
           for (uint32_t p = 0; p < planes.size(); ++p) {
             b.m.planes[p].length = static_cast<uint32_t>(planes[p].size());
             b.m.planes[p].m.mem_offset = b.index << 20 | p << 16;
           }
           return 0;
         })},
        {VIDIOC_QBUF, as<v4l2_buffer>([this](auto& b) { queued_.push_back(b.index); })},
        {VIDIOC_DQBUF, as<v4l2_buffer>([this](auto& b) {
           if (b.type != bufferType()) return EINVAL;
           if (done_.empty()) return EAGAIN;
           v4l2_plane* planes = b.m.planes;
           const Filled& filled = done_.front();
           b = filled.buffer;
           if (multiplanar) {
             b.m.planes = planes;
             b.length = static_cast<uint32_t>(filled.planes.size());
             std::copy(filled.planes.begin(), filled.planes.end(), planes);
           }
           done_.pop_front();
           return 0;
         })},
        {VIDIOC_STREAMON, as<int>([this](int&) { streaming = true; })},
        {VIDIOC_STREAMOFF, as<int>([this](int&) { streaming = false; })},
    };
  }

  // Fills the next queued buffer as the driver would; false when none is queued.
  bool deliver(const std::vector<uint8_t>& bytes, double time = 0,
               uint32_t flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC) {
    return deliverPlanes({bytes}, {0}, time, flags);
  }
  // The same for each plane of a multi-planar buffer, each plane's bytes
  // after its own data offset.
  bool deliverPlanes(const std::vector<std::vector<uint8_t>>& planeBytes,
                     const std::vector<uint32_t>& offsets, double time = 0,
                     uint32_t flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC) {
    std::lock_guard lock(mutex_);
    if (queued_.empty()) return false;
    Filled filled;
    auto& b = filled.buffer;
    b.index = queued_.front();
    queued_.pop_front();
    auto& planes = buffers_[b.index];
    for (size_t p = 0; p < planes.size() && p < planeBytes.size(); ++p) {
      const size_t size = std::min(planeBytes[p].size(), planes[p].size() - offsets[p]);
      std::memcpy(planes[p].data() + offsets[p], planeBytes[p].data(), size);
      v4l2_plane plane{};
      plane.bytesused = static_cast<uint32_t>(offsets[p] + size);
      plane.data_offset = offsets[p];
      filled.planes.push_back(plane);
    }
    b.bytesused = filled.planes[0].bytesused;
    b.flags = flags;
    b.timestamp = {static_cast<time_t>(time),
                   static_cast<suseconds_t>(std::lround((time - std::floor(time)) * 1e6))};
    done_.push_back(filled);
    changed_.notify_all();
    return true;
  }
  // From now on poll() reports the node hung up and every ioctl fails with ENODEV.
  void vanish() { signal(gone_); }

  int open(const char* p, int) override {
    errno = p != path ? ENOENT : openError;
    return errno ? -1 : kFd;
  }
  int close(int fd) override { return wakeClosed = wakeClosed || fd == kWakeFd, 0; }
  int fstat(int, struct stat*) override { return -1; }  // no sysfs placement
  int makeWakeFd() override {
    std::lock_guard lock(mutex_);
    woken_ = wakeClosed = false;
    return kWakeFd;
  }
  void wake(int) override { signal(woken_); }
  double monotonicNow() override { return 500.0; }
  void* mmap(size_t length, int, int, int, off_t offset) override {
    std::lock_guard lock(mutex_);
    size_t i = static_cast<size_t>(offset) >> 20, p = static_cast<size_t>(offset) >> 16 & 0xf;
    if (i >= buffers_.size() || p >= buffers_[i].size() || length != buffers_[i][p].size()) {
      errno = EINVAL;
      return MAP_FAILED;
    }
    ++mapped;
    return buffers_[i][p].data();
  }
  int munmap(void*, size_t) override { return --mapped, 0; }
  int poll(pollfd* fds, nfds_t count, int) override {
    std::unique_lock lock(mutex_);
    // A generous bound, so that a broken stream fails its test, not the run.
    changed_.wait_for(lock, std::chrono::seconds(10),
                      [&] { return woken_ || gone_ || !done_.empty(); });
    int ready = 0;
    for (auto* p = fds; p != fds + count; ++p) {
      p->revents = p->fd == kWakeFd ? (woken_ ? POLLIN : 0)
                   : gone_          ? POLLERR | POLLHUP
                                    : (done_.empty() ? 0 : POLLIN);
      ready += p->revents != 0;
    }
    return ready;
  }
  int ioctl(int fd, unsigned long request, void* arg) override {
    std::lock_guard lock(mutex_);
    auto answer = answers.find(request);
    errno = fd != kFd                 ? EBADF
            : gone_                   ? ENODEV
            : answer == answers.end() ? ENOTTY
                                      : answer->second(arg);
    return errno ? -1 : 0;
  }

 private:
  // An answer on the request's own argument: an errno, or nothing when it cannot fail.
  template <class T, class F>
  static Answer as(F f) {
    return [f](void* arg) {
      T& a = *static_cast<T*>(arg);
      if constexpr (std::is_void_v<decltype(f(a))>)
        return f(a), 0;
      else
        return f(a);
    };
  }
  void signal(bool& flag) {
    std::lock_guard lock(mutex_);
    flag = true;
    changed_.notify_all();
  }

  static bool packed(uint32_t fourcc) {
    return fourcc == V4L2_PIX_FMT_YUYV || fourcc == V4L2_PIX_FMT_UYVY;
  }
  uint32_t bufferType() const {
    return multiplanar ? V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE : V4L2_BUF_TYPE_VIDEO_CAPTURE;
  }
  struct Filled {
    v4l2_buffer buffer{};
    std::vector<v4l2_plane> planes;
  };

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::vector<std::vector<uint8_t>>> buffers_;  // each buffer's planes
  std::deque<uint32_t> queued_;
  std::deque<Filled> done_;
  std::vector<uint32_t> planeSizes_;
  bool woken_ = false, gone_ = false;
};

}  // namespace oxelo::test
