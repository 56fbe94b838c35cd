#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/camera/V4l2Syscalls.h"

namespace oxelo {

// What the V4L2 driver of one video node says about itself, read once with
// VIDIOC_QUERYCAP, VIDIOC_ENUM_FMT, VIDIOC_ENUM_FRAMESIZES,
// VIDIOC_ENUM_FRAMEINTERVALS and VIDIOC_QUERYCTRL. Plain records, so that the
// mapping into the device model is tested without hardware.

// A frame interval in seconds, numerator / denominator. A discrete interval
// has equal bounds; a stepwise one spans shortest to longest.
struct V4l2FrameInterval {
  uint32_t shortestNumerator = 1, shortestDenominator = 30;
  uint32_t longestNumerator = 1, longestDenominator = 30;
};

struct V4l2FrameSize {
  uint32_t width = 0, height = 0;
  std::vector<V4l2FrameInterval> intervals;
};

struct V4l2PixelFormat {
  uint32_t fourcc = 0;  // V4L2_PIX_FMT_...
  std::string description;
  std::vector<V4l2FrameSize> sizes;
};

struct V4l2MenuItem {
  uint32_t index = 0;
  int64_t value = 0;  // of an integer menu; the index for a text menu
  std::string name;   // of a text menu
};

struct V4l2Control {
  uint32_t id = 0;
  uint32_t type = 0;  // V4L2_CTRL_TYPE_...
  std::string name;
  int64_t minimum = 0, maximum = 0, step = 1, defaultValue = 0;
  int64_t value = 0;  // when read
  uint32_t flags = 0;
  std::vector<V4l2MenuItem> menu;

  bool hasMenuIndex(uint32_t index) const;
  bool writable() const;  // neither read-only nor disabled
};

struct V4l2DeviceInfo {
  std::string path;  // "/dev/video0"
  std::string driver, card, busInfo;
  uint32_t deviceCaps = 0;
  bool multiplanar = false;
  std::vector<V4l2PixelFormat> formats;
  std::vector<V4l2Control> controls;
  // Where the firmware or udev places the camera: "front", "back" or empty.
  // From /sys/.../physical_location/panel, or the udev property
  // OXELO_CAMERA_POSITION (set by a local udev rule).
  std::string placement;

  const V4l2Control* control(uint32_t id) const;
};

// The video nodes under `dir` (video0, video1, ...), in number order.
std::vector<std::string> listVideoNodes(const std::filesystem::path& dir = "/dev");

enum class V4l2ProbeResult {
  capture,     // a capture device, described
  notCapture,  // a node of another kind (metadata, output, codec): skipped
  failed,      // could not be opened or asked: `error` says why
};

// Opens `path`, describes it and closes it again. Every call goes through
// `sys` (the real system calls unless a test gives a fake).
V4l2ProbeResult probeV4l2Node(const std::string& path, V4l2DeviceInfo& info, std::string& error,
                              V4l2Syscalls& sys = *V4l2Syscalls::system());

// Describes an open node.
V4l2ProbeResult probeV4l2Fd(int fd, const std::string& path, V4l2DeviceInfo& info,
                            std::string& error, V4l2Syscalls& sys = *V4l2Syscalls::system());

// Reads the present value of a control; false when the driver refuses.
bool readV4l2Control(int fd, uint32_t id, int64_t& value,
                     V4l2Syscalls& sys = *V4l2Syscalls::system());
// Writes a control; false, with errno kept, when the driver refuses.
bool writeV4l2Control(int fd, uint32_t id, int64_t value,
                      V4l2Syscalls& sys = *V4l2Syscalls::system());

}  // namespace oxelo
