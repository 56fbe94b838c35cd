#include "platform/camera/V4l2Probe.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>

namespace oxelo {

namespace {

std::string text(const uint8_t* bytes, size_t size) {
  const char* c = reinterpret_cast<const char*>(bytes);
  return std::string(c, strnlen(c, size));
}

// Sizes tried inside a stepwise or continuous frame-size range: the sizes
// the catalogue asks for, and the range's ends.
std::vector<V4l2FrameSize> sizesInRange(const v4l2_frmsize_stepwise& s) {
  static constexpr uint32_t kWanted[][2] = {{640, 360},   {640, 480},   {800, 600},
                                            {960, 540},   {1280, 720},  {1280, 960},
                                            {1920, 1080}, {2560, 1440}, {3840, 2160}};
  auto fits = [&](uint32_t w, uint32_t h) {
    if (w < s.min_width || w > s.max_width || h < s.min_height || h > s.max_height) return false;
    if (s.step_width > 1 && (w - s.min_width) % s.step_width != 0) return false;
    if (s.step_height > 1 && (h - s.min_height) % s.step_height != 0) return false;
    return true;
  };
  std::vector<V4l2FrameSize> sizes;
  auto add = [&](uint32_t w, uint32_t h) {
    for (const auto& have : sizes) {
      if (have.width == w && have.height == h) return;
    }
    sizes.push_back({w, h, {}});
  };
  add(s.min_width, s.min_height);
  for (const auto& w : kWanted) {
    if (fits(w[0], w[1])) add(w[0], w[1]);
  }
  add(s.max_width, s.max_height);
  return sizes;
}

void readIntervals(V4l2Syscalls& sys, int fd, uint32_t fourcc, V4l2FrameSize& size) {
  v4l2_frmivalenum iv{};
  iv.pixel_format = fourcc;
  iv.width = size.width;
  iv.height = size.height;
  for (iv.index = 0; sys.xioctl(fd, VIDIOC_ENUM_FRAMEINTERVALS, &iv) == 0; ++iv.index) {
    if (iv.type == V4L2_FRMIVAL_TYPE_DISCRETE) {
      const auto& d = iv.discrete;
      size.intervals.push_back({d.numerator, d.denominator, d.numerator, d.denominator});
      continue;
    }
    const auto& s = iv.stepwise;
    size.intervals.push_back(
        {s.min.numerator, s.min.denominator, s.max.numerator, s.max.denominator});
    break;
  }
}

// A driver that lists no intervals still reports the interval in use.
void readCurrentInterval(V4l2Syscalls& sys, int fd, uint32_t bufferType, V4l2FrameSize& size) {
  v4l2_streamparm parm{};
  parm.type = bufferType;
  if (sys.xioctl(fd, VIDIOC_G_PARM, &parm) != 0) return;
  const auto& t = parm.parm.capture.timeperframe;
  if (t.numerator == 0 || t.denominator == 0) return;
  size.intervals.push_back({t.numerator, t.denominator, t.numerator, t.denominator});
}

void readFormats(V4l2Syscalls& sys, int fd, uint32_t bufferType, V4l2DeviceInfo& info) {
  v4l2_fmtdesc desc{};
  desc.type = bufferType;
  for (desc.index = 0; sys.xioctl(fd, VIDIOC_ENUM_FMT, &desc) == 0; ++desc.index) {
    V4l2PixelFormat format;
    format.fourcc = desc.pixelformat;
    format.description = text(desc.description, sizeof(desc.description));
    v4l2_frmsizeenum fs{};
    fs.pixel_format = desc.pixelformat;
    for (fs.index = 0; sys.xioctl(fd, VIDIOC_ENUM_FRAMESIZES, &fs) == 0; ++fs.index) {
      if (fs.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
        format.sizes.push_back({fs.discrete.width, fs.discrete.height, {}});
        continue;
      }
      format.sizes = sizesInRange(fs.stepwise);
      break;
    }
    for (auto& size : format.sizes) {
      readIntervals(sys, fd, format.fourcc, size);
      if (size.intervals.empty()) readCurrentInterval(sys, fd, bufferType, size);
    }
    info.formats.push_back(std::move(format));
  }
}

void readControls(V4l2Syscalls& sys, int fd, V4l2DeviceInfo& info) {
  v4l2_queryctrl q{};
  q.id = V4L2_CTRL_FLAG_NEXT_CTRL;
  while (sys.xioctl(fd, VIDIOC_QUERYCTRL, &q) == 0) {
    uint32_t id = q.id;
    q.id = id | V4L2_CTRL_FLAG_NEXT_CTRL;
    if (q.type == V4L2_CTRL_TYPE_CTRL_CLASS || (q.flags & V4L2_CTRL_FLAG_DISABLED)) continue;
    V4l2Control c;
    c.id = id;
    c.type = q.type;
    c.name = text(q.name, sizeof(q.name));
    c.minimum = q.minimum;
    c.maximum = q.maximum;
    c.step = q.step;
    c.defaultValue = q.default_value;
    c.flags = q.flags;
    if (q.type == V4L2_CTRL_TYPE_MENU || q.type == V4L2_CTRL_TYPE_INTEGER_MENU) {
      for (int64_t i = q.minimum; i <= q.maximum && i >= 0; ++i) {
        v4l2_querymenu m{};
        m.id = id;
        m.index = static_cast<uint32_t>(i);
        if (sys.xioctl(fd, VIDIOC_QUERYMENU, &m) != 0) continue;
        V4l2MenuItem item;
        item.index = m.index;
        if (q.type == V4L2_CTRL_TYPE_INTEGER_MENU) {
          item.value = m.value;
        } else {
          item.value = m.index;
          item.name = text(m.name, sizeof(m.name));
        }
        c.menu.push_back(std::move(item));
      }
    }
    if (q.type != V4L2_CTRL_TYPE_BUTTON && !(q.flags & V4L2_CTRL_FLAG_WRITE_ONLY)) {
      readV4l2Control(fd, id, c.value, sys);
    }
    info.controls.push_back(std::move(c));
  }
}

std::string firstLine(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

// The panel the firmware places the camera on, or a udev property.
std::string readPlacement(V4l2Syscalls& sys, int fd) {
  struct stat st {};
  if (sys.fstat(fd, &st) != 0 || !S_ISCHR(st.st_mode)) return "";
  unsigned maj = major(st.st_rdev), min = minor(st.st_rdev);
  std::ifstream udev("/run/udev/data/c" + std::to_string(maj) + ":" + std::to_string(min));
  for (std::string line; std::getline(udev, line);) {
    const std::string key = "E:OXELO_CAMERA_POSITION=";
    if (line.rfind(key, 0) == 0) return line.substr(key.size());
  }
  std::error_code ec;
  auto dir = std::filesystem::canonical(
      "/sys/dev/char/" + std::to_string(maj) + ":" + std::to_string(min), ec);
  for (int depth = 0; !ec && depth < 8 && dir.has_relative_path();
       ++depth, dir = dir.parent_path()) {
    std::string panel = firstLine(dir / "physical_location" / "panel");
    if (panel == "front" || panel == "back") return panel;
  }
  return "";
}

}  // namespace

bool V4l2Control::hasMenuIndex(uint32_t index) const {
  for (const auto& m : menu) {
    if (m.index == index) return true;
  }
  return false;
}

bool V4l2Control::writable() const {
  return !(flags & (V4L2_CTRL_FLAG_READ_ONLY | V4L2_CTRL_FLAG_DISABLED));
}

const V4l2Control* V4l2DeviceInfo::control(uint32_t id) const {
  for (const auto& c : controls) {
    if (c.id == id) return &c;
  }
  return nullptr;
}

std::vector<std::string> listVideoNodes(const std::filesystem::path& dir) {
  std::vector<std::pair<long, std::string>> nodes;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
    std::string name = entry.path().filename().string();
    if (name.rfind("video", 0) != 0 || name.size() == 5) continue;
    std::string digits = name.substr(5);
    if (!std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
      continue;
    nodes.emplace_back(std::stol(digits), entry.path().string());
  }
  std::sort(nodes.begin(), nodes.end());
  std::vector<std::string> paths;
  for (auto& n : nodes) paths.push_back(std::move(n.second));
  return paths;
}

V4l2ProbeResult probeV4l2Node(const std::string& path, V4l2DeviceInfo& info, std::string& error,
                              V4l2Syscalls& sys) {
  int fd = sys.open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    error = std::strerror(errno);
    return V4l2ProbeResult::failed;
  }
  auto result = probeV4l2Fd(fd, path, info, error, sys);
  sys.close(fd);
  return result;
}

V4l2ProbeResult probeV4l2Fd(int fd, const std::string& path, V4l2DeviceInfo& info,
                            std::string& error, V4l2Syscalls& sys) {
  v4l2_capability cap{};
  if (sys.xioctl(fd, VIDIOC_QUERYCAP, &cap) != 0) {
    error = std::string("not a V4L2 device: ") + std::strerror(errno);
    return V4l2ProbeResult::failed;
  }
  uint32_t caps = (cap.capabilities & V4L2_CAP_DEVICE_CAPS) ? cap.device_caps : cap.capabilities;
  if (!(caps & (V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE))) {
    return V4l2ProbeResult::notCapture;
  }
  info = V4l2DeviceInfo{};
  info.path = path;
  info.driver = text(cap.driver, sizeof(cap.driver));
  info.card = text(cap.card, sizeof(cap.card));
  info.busInfo = text(cap.bus_info, sizeof(cap.bus_info));
  info.deviceCaps = caps;
  info.multiplanar = !(caps & V4L2_CAP_VIDEO_CAPTURE);
  readFormats(sys, fd,
              info.multiplanar ? V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE : V4L2_BUF_TYPE_VIDEO_CAPTURE,
              info);
  readControls(sys, fd, info);
  info.placement = readPlacement(sys, fd);
  return V4l2ProbeResult::capture;
}

bool readV4l2Control(int fd, uint32_t id, int64_t& value, V4l2Syscalls& sys) {
  v4l2_control c{};
  c.id = id;
  if (sys.xioctl(fd, VIDIOC_G_CTRL, &c) != 0) return false;
  value = c.value;
  return true;
}

bool writeV4l2Control(int fd, uint32_t id, int64_t value, V4l2Syscalls& sys) {
  v4l2_control c{};
  c.id = id;
  c.value = static_cast<int32_t>(value);
  return sys.xioctl(fd, VIDIOC_S_CTRL, &c) == 0;
}

}  // namespace oxelo
