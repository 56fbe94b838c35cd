#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/camera/CameraProblem.h"
#include "platform/camera/CaptureDevice.h"
#include "platform/camera/CaptureDeviceDriver.h"
#include "platform/camera/MjpegDecoder.h"
#include "platform/camera/V4l2Mapping.h"
#include "platform/camera/V4l2Probe.h"
#include "platform/camera/V4l2Stream.h"

namespace oxelo {

// The machine's V4L2 capture devices as device-model cameras (see
// V4l2Mapping.h for how formats and controls map).
struct V4l2Enumeration {
  std::vector<std::shared_ptr<CaptureDevice>> devices;  // system order
  std::vector<CameraProblem> problems;  // nodes that could not be opened or asked, or
                                        // that deliver no format capture can convert
};

// What the V4L2 cameras are made with: the system calls (a test's fake
// instead of the real ones) and the MJPEG decoder (none: MJPEG formats are
// listed but fail to stream with a message saying so).
struct V4l2Backend {
  std::shared_ptr<V4l2Syscalls> syscalls = V4l2Syscalls::system();
  MjpegDecoderFactory mjpeg;
};

// Every capture node under `dir` (video0, video1, ...). Nodes of other kinds
// (metadata, codecs, outputs) are left out silently.
V4l2Enumeration enumerateV4l2Cameras(const std::filesystem::path& dir = "/dev",
                                     const V4l2Backend& backend = {});
// One node; a node that is not a capture device is a problem here.
V4l2Enumeration enumerateV4l2Camera(const std::string& node, const V4l2Backend& backend = {});

// The driver of one V4L2 camera. Keeps the node open for its lifetime and
// writes controls as the model changes, automatic ones off before a manual
// value; the active format and frame timing
// are set on the node when streaming starts (see V4l2Stream).
class V4l2CaptureDriver final : public CaptureDeviceDriver {
 public:
  // Takes the descriptor, opened through `backend.syscalls`.
  V4l2CaptureDriver(int fd, V4l2DeviceInfo info, V4l2Backend backend = {});
  ~V4l2CaptureDriver() override;

  bool lockForConfiguration(std::string& error) override;
  void unlockForConfiguration() override {}
  bool apply(const CaptureDeviceState& wanted, DeviceSetting setting) override;
  void load(CaptureDeviceState& state) override;
  void refresh(CaptureDeviceState& state) override;
  CameraError startStreaming(const CaptureDeviceFormat& format, CaptureTime frameDuration,
                             std::weak_ptr<CameraFrameSink> sink) override;
  void stopStreaming() override;

  int fd() const { return fd_; }
  const V4l2DeviceInfo& info() const { return info_; }

 private:
  bool write(const V4l2Control* control, int64_t value);
  bool read(const V4l2Control* control, int64_t& value) const;
  // The automatic controls of exposure and gain on or off; off holds the
  // values in use.
  bool applyAutoExposure(bool on);
  bool applyCustomExposure(const CaptureDeviceState& wanted);
  bool applyIso(float iso);
  bool applyFocusMode(int64_t mode);
  bool applyAutoWhiteBalance(bool on);
  bool applyTorch(const CaptureDeviceState& wanted);

  int fd_;
  V4l2DeviceInfo info_;
  V4l2Backend backend_;
  V4l2Stream stream_;
  V4l2ControlRoles roles_;  // into info_
};

}  // namespace oxelo
