#include "platform/camera/V4l2CameraBackend.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/videodev2.h>

#include <cmath>
#include <cstring>
#include <set>

#include "platform/camera/V4l2Mapping.h"
#include "platform/camera/WhiteBalanceModel.h"

namespace oxelo {

namespace {

std::string fourccText(uint32_t fourcc) {
  std::string s;
  for (int i = 0; i < 4; ++i) {
    char c = static_cast<char>((fourcc >> (8 * i)) & 0xff);
    s += (c >= 32 && c < 127) ? c : '?';
  }
  return s;
}

struct Found {
  int fd;
  V4l2DeviceInfo info;
};

// Opens and describes one node: a capture device, skipped, or a problem.
void probe(V4l2Syscalls& sys, const std::string& path, bool reportOtherKinds,
           std::vector<Found>& found, std::vector<CameraProblem>& problems) {
  int fd = sys.open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    int e = errno;
    problems.push_back({path, std::strerror(e), CameraError::fromErrno(e, path, "open")});
    return;
  }
  V4l2DeviceInfo info;
  std::string error;
  auto result = probeV4l2Fd(fd, path, info, error, sys);
  if (result == V4l2ProbeResult::failed) {
    problems.push_back(
        {path, error, {CameraErrorCode::failed, "the camera " + path + ": " + error}});
    sys.close(fd);
    return;
  }
  if (result == V4l2ProbeResult::notCapture) {
    if (reportOtherKinds)
      problems.push_back({path,
                          "not a video capture device",
                          {CameraErrorCode::noCamera, path + " is not a video capture device"}});
    sys.close(fd);
    return;
  }
  if (mapV4l2Formats(info).empty()) {
    std::string offered;
    for (const auto& f : info.formats)
      offered += (offered.empty() ? "" : ", ") + fourccText(f.fourcc);
    std::string why =
        "delivers none of NV12, NV21, YUV 4:2:0, packed YUV 4:2:2 and MJPEG (it offers " +
        (offered.empty() ? std::string("nothing") : offered) + ")";
    problems.push_back(
        {path, why, {CameraErrorCode::unsupported, "the camera " + path + " " + why}});
    sys.close(fd);
    return;
  }
  found.push_back({fd, std::move(info)});
}

V4l2Enumeration build(std::vector<Found> found, std::vector<CameraProblem> problems,
                      const V4l2Backend& backend) {
  std::vector<AVCaptureDevicePosition> reported;
  for (const auto& f : found) reported.push_back(reportedV4l2Position(f.info));
  auto positions = assignV4l2Positions(reported);
  V4l2Enumeration result;
  result.problems = std::move(problems);
  std::set<std::string> ids;
  for (size_t i = 0; i < found.size(); ++i) {
    auto description = describeV4l2Device(found[i].info, positions[i]);
    if (!ids.insert(description.uniqueID).second) {
      description.uniqueID += ":" + found[i].info.path;
      ids.insert(description.uniqueID);
    }
    auto driver =
        std::make_unique<V4l2CaptureDriver>(found[i].fd, std::move(found[i].info), backend);
    result.devices.push_back(
        std::make_shared<CaptureDevice>(std::move(description), std::move(driver)));
  }
  return result;
}

}  // namespace

V4l2Enumeration enumerateV4l2Cameras(const std::filesystem::path& dir, const V4l2Backend& backend) {
  std::vector<Found> found;
  std::vector<CameraProblem> problems;
  for (const auto& node : listVideoNodes(dir))
    probe(*backend.syscalls, node, false, found, problems);
  return build(std::move(found), std::move(problems), backend);
}

V4l2Enumeration enumerateV4l2Camera(const std::string& node, const V4l2Backend& backend) {
  std::vector<Found> found;
  std::vector<CameraProblem> problems;
  probe(*backend.syscalls, node, true, found, problems);
  return build(std::move(found), std::move(problems), backend);
}

V4l2CaptureDriver::V4l2CaptureDriver(int fd, V4l2DeviceInfo info, V4l2Backend backend)
    : fd_(fd),
      info_(std::move(info)),
      backend_(std::move(backend)),
      stream_(backend_.syscalls, fd_, info_.path, info_.multiplanar, backend_.mjpeg),
      roles_(v4l2ControlRoles(info_)) {}

V4l2CaptureDriver::~V4l2CaptureDriver() {
  stream_.stop();
  if (fd_ >= 0) backend_.syscalls->close(fd_);
}

CameraError V4l2CaptureDriver::startStreaming(const CaptureDeviceFormat& format,
                                              CaptureTime frameDuration,
                                              std::weak_ptr<CameraFrameSink> sink) {
  uint32_t fourcc = v4l2FourccFor(info_, format);
  if (fourcc == 0)
    return {CameraErrorCode::unsupported,
            "the camera " + info_.path + " cannot stream " + format.description()};
  return stream_.start(fourcc, format.width, format.height, frameDuration, std::move(sink));
}

void V4l2CaptureDriver::stopStreaming() { stream_.stop(); }

bool V4l2CaptureDriver::lockForConfiguration(std::string& error) {
  v4l2_capability cap{};
  if (backend_.syscalls->xioctl(fd_, VIDIOC_QUERYCAP, &cap) == 0) return true;
  error = std::string("the camera cannot be reached: ") + std::strerror(errno);
  return false;
}

bool V4l2CaptureDriver::write(const V4l2Control* control, int64_t value) {
  return control && writeV4l2Control(fd_, control->id, value, *backend_.syscalls);
}

bool V4l2CaptureDriver::read(const V4l2Control* control, int64_t& value) const {
  return control && readV4l2Control(fd_, control->id, value, *backend_.syscalls);
}

bool V4l2CaptureDriver::applyAutoExposure(bool on) {
  const auto& r = roles_;
  if (on) {
    if (r.exposureAuto && !write(r.exposureAuto, r.exposureAutoOn)) return false;
    if (r.isoAuto && !write(r.isoAuto, V4L2_ISO_SENSITIVITY_AUTO)) return false;
    return !r.autoGain || write(r.autoGain, 1);
  }
  // Some drivers return to the last manual value when automatic ends, so
  // the values in use are read first and written back.
  int64_t time = 0, gain = 0;
  bool haveTime = read(r.exposureTime, time), haveGain = read(r.iso, gain);
  if (r.exposureAuto && !write(r.exposureAuto, r.exposureManual)) return false;
  if (r.isoAuto && !write(r.isoAuto, V4L2_ISO_SENSITIVITY_MANUAL)) return false;
  if (r.autoGain && !write(r.autoGain, 0)) return false;
  if (haveTime) write(r.exposureTime, time);
  if (haveGain) write(r.iso, gain);
  return true;
}

bool V4l2CaptureDriver::applyIso(float iso) {
  auto control = roles_.iso;
  if (!control) return true;  // no gain control: the sensor keeps its own
  if (control->type == V4L2_CTRL_TYPE_INTEGER_MENU)
    return write(control, nearestMenuIndex(*control, static_cast<int64_t>(std::lround(iso))));
  return write(control, snapToControl(*control, iso));
}

bool V4l2CaptureDriver::applyCustomExposure(const CaptureDeviceState& wanted) {
  const auto& r = roles_;
  if (!r.exposureTime) return false;
  if (r.exposureAuto && !write(r.exposureAuto, r.exposureManual)) return false;
  if (r.isoAuto && !write(r.isoAuto, V4L2_ISO_SENSITIVITY_MANUAL)) return false;
  if (r.autoGain && !write(r.autoGain, 0)) return false;
  if (!write(r.exposureTime, v4l2FromExposure(*r.exposureTime, wanted.exposureDuration)))
    return false;
  return applyIso(wanted.ISO);
}

bool V4l2CaptureDriver::applyFocusMode(int64_t mode) {
  const auto& r = roles_;
  if (mode == AVCaptureFocusModeContinuousAutoFocus) return write(r.focusAuto, 1);
  if (r.focusAuto && !write(r.focusAuto, 0)) return false;
  if (mode == AVCaptureFocusModeAutoFocus) return write(r.focusStart, 1);
  return !r.focusStop || write(r.focusStop, 1);  // a one-time scan ends where it is
}

bool V4l2CaptureDriver::applyAutoWhiteBalance(bool on) {
  const auto& r = roles_;
  if (r.whiteBalanceAuto) return write(r.whiteBalanceAuto, on ? 1 : 0);
  if (r.whiteBalancePreset)
    return write(r.whiteBalancePreset, on ? V4L2_WHITE_BALANCE_AUTO : V4L2_WHITE_BALANCE_MANUAL);
  return !on;
}

bool V4l2CaptureDriver::applyTorch(const CaptureDeviceState& wanted) {
  const auto& r = roles_;
  bool on = wanted.torchMode != AVCaptureTorchModeOff;
  if (r.illuminator) return write(r.illuminator, on ? 1 : 0);
  if (!on) return write(r.ledMode, V4L2_FLASH_LED_MODE_NONE);
  if (auto intensity = r.torchIntensity) {
    double span = static_cast<double>(intensity->maximum - intensity->minimum);
    if (!write(intensity, snapToControl(*intensity, intensity->minimum + wanted.torchLevel * span)))
      return false;
  }
  return write(r.ledMode, V4L2_FLASH_LED_MODE_TORCH);
}

bool V4l2CaptureDriver::apply(const CaptureDeviceState& wanted, DeviceSetting setting) {
  const auto& r = roles_;
  switch (setting) {
    case DeviceSetting::activeFormat:
    case DeviceSetting::frameDuration:
      return true;  // taken by the capture session when it starts streaming
    case DeviceSetting::focusMode:
      return applyFocusMode(wanted.focusMode);
    case DeviceSetting::lensPosition:
      if (!r.focusPosition || !applyFocusMode(AVCaptureFocusModeLocked)) return false;
      return write(r.focusPosition, focusFromLensPosition(*r.focusPosition, wanted.lensPosition));
    case DeviceSetting::exposureMode:
      if (wanted.exposureMode == AVCaptureExposureModeCustom) return applyCustomExposure(wanted);
      return applyAutoExposure(wanted.exposureMode == AVCaptureExposureModeContinuousAutoExposure);
    case DeviceSetting::customExposure:
      return applyCustomExposure(wanted);
    case DeviceSetting::exposureTargetBias: {
      if (!r.bias) return wanted.exposureTargetBias == 0.0f;
      auto milli = static_cast<int64_t>(std::lround(wanted.exposureTargetBias * 1000.0));
      if (r.bias->type == V4L2_CTRL_TYPE_INTEGER_MENU)
        return write(r.bias, nearestMenuIndex(*r.bias, milli));
      return write(r.bias, snapToControl(*r.bias, static_cast<double>(milli)));
    }
    case DeviceSetting::whiteBalanceMode:
      if (wanted.whiteBalanceMode == AVCaptureWhiteBalanceModeContinuousAutoWhiteBalance)
        return applyAutoWhiteBalance(true);
      if (!applyAutoWhiteBalance(false)) return false;
      return wanted.whiteBalanceMode != AVCaptureWhiteBalanceModeAutoWhiteBalance ||
             write(r.whiteBalanceOnce, 1);
    case DeviceSetting::whiteBalanceGains: {
      if (!r.temperature || !applyAutoWhiteBalance(false)) return false;
      auto kelvin = temperatureAndTintForWhiteBalanceGains(wanted.whiteBalanceGains).temperature;
      return write(r.temperature, snapToControl(*r.temperature, kelvin));
    }
    case DeviceSetting::videoZoomFactor:
      if (!r.zoom) return wanted.videoZoomFactor == 1.0;
      return write(r.zoom, v4l2FromZoomFactor(*r.zoom, wanted.videoZoomFactor));
    case DeviceSetting::torch:
      return applyTorch(wanted);
    case DeviceSetting::lowLightBoost:
      return write(r.lowLightBoost, wanted.automaticallyEnablesLowLightBoostWhenAvailable ? 1 : 0);
    case DeviceSetting::videoHDR:
      if (!r.hdr) return true;
      return write(r.hdr,
                   wanted.automaticallyAdjustsVideoHDREnabled || wanted.videoHDREnabled ? 1 : 0);
    case DeviceSetting::focusPointOfInterest:
    case DeviceSetting::exposurePointOfInterest:
    case DeviceSetting::smoothAutoFocus:
    case DeviceSetting::faceDrivenAutoFocus:
    case DeviceSetting::faceDrivenAutoExposure:
    case DeviceSetting::subjectAreaChangeMonitoring:
      return true;  // kept by the model; V4L2 has no such control
  }
  return false;
}

void V4l2CaptureDriver::load(CaptureDeviceState& state) {
  const auto& r = roles_;
  int64_t v = 0;
  // The modes the camera is in; without an automatic control it holds.
  state.exposureMode = AVCaptureExposureModeLocked;
  if (r.exposureAuto ? read(r.exposureAuto, v) &&
                           (v == V4L2_EXPOSURE_AUTO || v == V4L2_EXPOSURE_APERTURE_PRIORITY)
                     : read(r.autoGain, v) && v != 0)
    state.exposureMode = AVCaptureExposureModeContinuousAutoExposure;
  state.focusMode =
      read(r.focusAuto, v) && v ? AVCaptureFocusModeContinuousAutoFocus : AVCaptureFocusModeLocked;
  state.whiteBalanceMode = AVCaptureWhiteBalanceModeLocked;
  if (r.whiteBalanceAuto ? read(r.whiteBalanceAuto, v) && v != 0
                         : read(r.whiteBalancePreset, v) && v == V4L2_WHITE_BALANCE_AUTO)
    state.whiteBalanceMode = AVCaptureWhiteBalanceModeContinuousAutoWhiteBalance;
  if (r.zoom && read(r.zoom, v)) state.videoZoomFactor = zoomFactorFromV4l2(*r.zoom, v);
  if (read(r.illuminator, v) || read(r.ledMode, v)) {
    bool on = r.illuminator ? v != 0 : v == V4L2_FLASH_LED_MODE_TORCH;
    state.torchMode = on ? AVCaptureTorchModeOn : AVCaptureTorchModeOff;
    state.torchLevel = on ? 1.0f : 0.0f;
  }
  if (auto intensity = r.torchIntensity;
      intensity && read(intensity, v) && intensity->maximum > intensity->minimum) {
    state.torchLevel = static_cast<float>(v - intensity->minimum) /
                       static_cast<float>(intensity->maximum - intensity->minimum);
  }
  if (read(r.lowLightBoost, v)) state.automaticallyEnablesLowLightBoostWhenAvailable = v != 0;
  if (r.bias && read(r.bias, v)) {
    int64_t milli = v;
    if (r.bias->type == V4L2_CTRL_TYPE_INTEGER_MENU) {
      for (const auto& m : r.bias->menu) {
        if (static_cast<int64_t>(m.index) == v) milli = m.value;
      }
    }
    state.exposureTargetBias = static_cast<float>(milli / 1000.0);
  }
  // Values read whatever the mode, once.
  CaptureDeviceState all = state;
  all.exposureMode = AVCaptureExposureModeContinuousAutoExposure;
  all.focusMode = AVCaptureFocusModeContinuousAutoFocus;
  all.whiteBalanceMode = AVCaptureWhiteBalanceModeContinuousAutoWhiteBalance;
  refresh(all);
  state.exposureDuration = all.exposureDuration;
  state.ISO = all.ISO;
  state.lensPosition = all.lensPosition;
  state.whiteBalanceGains = all.whiteBalanceGains;
}

void V4l2CaptureDriver::refresh(CaptureDeviceState& state) {
  const auto& r = roles_;
  int64_t v = 0;
  bool autoExposure = state.exposureMode == AVCaptureExposureModeContinuousAutoExposure;
  if (autoExposure && read(r.exposureTime, v) && v > 0)
    state.exposureDuration = exposureFromV4l2(v);
  if (autoExposure && r.iso && read(r.iso, v)) {
    if (r.iso->type != V4L2_CTRL_TYPE_INTEGER_MENU) state.ISO = static_cast<float>(v);
    for (const auto& m : r.iso->menu) {
      if (static_cast<int64_t>(m.index) == v) state.ISO = static_cast<float>(m.value);
    }
  }
  // A one-time scan settles into locked once the driver no longer says busy.
  if (state.focusMode == AVCaptureFocusModeAutoFocus && read(r.focusStatus, v) &&
      !(v & V4L2_AUTO_FOCUS_STATUS_BUSY))
    state.focusMode = AVCaptureFocusModeLocked;
  if (state.focusMode != AVCaptureFocusModeLocked && r.focusPosition && read(r.focusPosition, v))
    state.lensPosition = lensPositionFromFocus(*r.focusPosition, v);
  if (state.whiteBalanceMode != AVCaptureWhiteBalanceModeLocked && read(r.temperature, v) && v > 0)
    state.whiteBalanceGains = whiteBalanceGainsForTemperatureAndTint({static_cast<float>(v), 0.0f});
}

}  // namespace oxelo
