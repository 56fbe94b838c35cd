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
    std::string why = "delivers none of NV12, YUYV and MJPEG (it offers " +
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
      stream_(backend_.syscalls, fd_, info_.path, backend_.mjpeg) {}

V4l2CaptureDriver::~V4l2CaptureDriver() {
  stream_.stop();
  if (fd_ >= 0) backend_.syscalls->close(fd_);
}

CameraError V4l2CaptureDriver::startStreaming(const CaptureDeviceFormat& format,
                                              CaptureTime frameDuration,
                                              std::weak_ptr<CameraFrameSink> sink) {
  if (info_.multiplanar)
    return {CameraErrorCode::unsupported,
            "the camera " + info_.path + " has only the multi-planar API, which is not supported"};
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

const V4l2Control* V4l2CaptureDriver::writable(uint32_t id) const {
  auto c = info_.control(id);
  return c && c->writable() ? c : nullptr;
}

bool V4l2CaptureDriver::write(uint32_t id, int64_t value) {
  return writeV4l2Control(fd_, id, value, *backend_.syscalls);
}

bool V4l2CaptureDriver::read(uint32_t id, int64_t& value) const {
  return info_.control(id) && readV4l2Control(fd_, id, value, *backend_.syscalls);
}

bool V4l2CaptureDriver::applyExposureMode(int64_t mode) {
  auto control = writable(V4L2_CID_EXPOSURE_AUTO);
  if (!control) return mode == AVCaptureExposureModeLocked;
  if (mode == AVCaptureExposureModeContinuousAutoExposure) {
    uint32_t automatic = control->hasMenuIndex(V4L2_EXPOSURE_AUTO)
                             ? V4L2_EXPOSURE_AUTO
                             : V4L2_EXPOSURE_APERTURE_PRIORITY;
    return write(V4L2_CID_EXPOSURE_AUTO, automatic);
  }
  // Locked and custom are both manual; locking keeps the exposure in use.
  int64_t present = 0;
  bool known = read(V4L2_CID_EXPOSURE_ABSOLUTE, present);
  if (!write(V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL)) return false;
  if (known && writable(V4L2_CID_EXPOSURE_ABSOLUTE)) write(V4L2_CID_EXPOSURE_ABSOLUTE, present);
  return true;
}

bool V4l2CaptureDriver::applyIso(float iso) {
  if (auto sensitivity = writable(V4L2_CID_ISO_SENSITIVITY)) {
    if (writable(V4L2_CID_ISO_SENSITIVITY_AUTO))
      write(V4L2_CID_ISO_SENSITIVITY_AUTO, V4L2_ISO_SENSITIVITY_MANUAL);
    return write(V4L2_CID_ISO_SENSITIVITY,
                 nearestMenuIndex(*sensitivity, static_cast<int64_t>(std::lround(iso))));
  }
  if (auto gain = writable(V4L2_CID_GAIN)) return write(V4L2_CID_GAIN, snapToControl(*gain, iso));
  return true;  // no gain control: the sensor keeps its own
}

bool V4l2CaptureDriver::applyCustomExposure(const CaptureDeviceState& wanted) {
  auto exposure = writable(V4L2_CID_EXPOSURE_ABSOLUTE);
  if (!exposure || !write(V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL)) return false;
  if (!write(V4L2_CID_EXPOSURE_ABSOLUTE, v4l2FromExposure(*exposure, wanted.exposureDuration)))
    return false;
  return applyIso(wanted.ISO);
}

bool V4l2CaptureDriver::apply(const CaptureDeviceState& wanted, DeviceSetting setting) {
  switch (setting) {
    case DeviceSetting::activeFormat:
    case DeviceSetting::frameDuration:
      return true;  // taken by the capture session when it starts streaming
    case DeviceSetting::focusMode: {
      bool hasAuto = writable(V4L2_CID_FOCUS_AUTO) != nullptr;
      if (wanted.focusMode == AVCaptureFocusModeContinuousAutoFocus)
        return write(V4L2_CID_FOCUS_AUTO, 1);
      if (hasAuto && !write(V4L2_CID_FOCUS_AUTO, 0)) return false;
      if (wanted.focusMode == AVCaptureFocusModeAutoFocus)
        return write(V4L2_CID_AUTO_FOCUS_START, 1);
      return true;
    }
    case DeviceSetting::lensPosition: {
      auto focus = writable(V4L2_CID_FOCUS_ABSOLUTE);
      if (!focus) return false;
      if (writable(V4L2_CID_FOCUS_AUTO) && !write(V4L2_CID_FOCUS_AUTO, 0)) return false;
      return write(V4L2_CID_FOCUS_ABSOLUTE, focusFromLensPosition(*focus, wanted.lensPosition));
    }
    case DeviceSetting::exposureMode:
      if (wanted.exposureMode == AVCaptureExposureModeCustom) return applyCustomExposure(wanted);
      return applyExposureMode(wanted.exposureMode);
    case DeviceSetting::customExposure:
      return applyCustomExposure(wanted);
    case DeviceSetting::exposureTargetBias: {
      auto bias = writable(V4L2_CID_AUTO_EXPOSURE_BIAS);
      if (!bias) return wanted.exposureTargetBias == 0.0f;
      auto milli = static_cast<int64_t>(std::lround(wanted.exposureTargetBias * 1000.0));
      if (bias->type == V4L2_CTRL_TYPE_INTEGER_MENU)
        return write(V4L2_CID_AUTO_EXPOSURE_BIAS, nearestMenuIndex(*bias, milli));
      return write(V4L2_CID_AUTO_EXPOSURE_BIAS, snapToControl(*bias, static_cast<double>(milli)));
    }
    case DeviceSetting::whiteBalanceMode: {
      if (!writable(V4L2_CID_AUTO_WHITE_BALANCE))
        return wanted.whiteBalanceMode == AVCaptureWhiteBalanceModeLocked;
      bool automatic = wanted.whiteBalanceMode != AVCaptureWhiteBalanceModeLocked;
      return write(V4L2_CID_AUTO_WHITE_BALANCE, automatic ? 1 : 0);
    }
    case DeviceSetting::whiteBalanceGains: {
      auto temperature = writable(V4L2_CID_WHITE_BALANCE_TEMPERATURE);
      if (!temperature) return false;
      if (writable(V4L2_CID_AUTO_WHITE_BALANCE) && !write(V4L2_CID_AUTO_WHITE_BALANCE, 0))
        return false;
      auto kelvin = temperatureAndTintForWhiteBalanceGains(wanted.whiteBalanceGains).temperature;
      return write(V4L2_CID_WHITE_BALANCE_TEMPERATURE, snapToControl(*temperature, kelvin));
    }
    case DeviceSetting::videoZoomFactor: {
      auto zoom = writable(V4L2_CID_ZOOM_ABSOLUTE);
      if (!zoom) return wanted.videoZoomFactor == 1.0;
      return write(V4L2_CID_ZOOM_ABSOLUTE, v4l2FromZoomFactor(*zoom, wanted.videoZoomFactor));
    }
    case DeviceSetting::torch: {
      if (!writable(V4L2_CID_FLASH_LED_MODE)) return false;
      if (wanted.torchMode == AVCaptureTorchModeOff)
        return write(V4L2_CID_FLASH_LED_MODE, V4L2_FLASH_LED_MODE_NONE);
      if (auto intensity = writable(V4L2_CID_FLASH_TORCH_INTENSITY)) {
        double span = static_cast<double>(intensity->maximum - intensity->minimum);
        if (!write(V4L2_CID_FLASH_TORCH_INTENSITY,
                   snapToControl(*intensity, intensity->minimum + wanted.torchLevel * span)))
          return false;
      }
      return write(V4L2_CID_FLASH_LED_MODE, V4L2_FLASH_LED_MODE_TORCH);
    }
    case DeviceSetting::lowLightBoost:
      return write(V4L2_CID_EXPOSURE_AUTO_PRIORITY,
                   wanted.automaticallyEnablesLowLightBoostWhenAvailable ? 1 : 0);
    case DeviceSetting::videoHDR:
      if (!writable(V4L2_CID_WIDE_DYNAMIC_RANGE)) return true;
      return write(V4L2_CID_WIDE_DYNAMIC_RANGE,
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
  int64_t v = 0;
  if (read(V4L2_CID_EXPOSURE_AUTO, v)) {
    state.exposureMode = v == V4L2_EXPOSURE_MANUAL ? AVCaptureExposureModeLocked
                                                   : AVCaptureExposureModeContinuousAutoExposure;
  }
  if (read(V4L2_CID_FOCUS_AUTO, v)) {
    state.focusMode = v ? AVCaptureFocusModeContinuousAutoFocus : AVCaptureFocusModeLocked;
  }
  if (read(V4L2_CID_AUTO_WHITE_BALANCE, v)) {
    state.whiteBalanceMode =
        v ? AVCaptureWhiteBalanceModeContinuousAutoWhiteBalance : AVCaptureWhiteBalanceModeLocked;
  }
  if (auto zoom = info_.control(V4L2_CID_ZOOM_ABSOLUTE); zoom && read(V4L2_CID_ZOOM_ABSOLUTE, v)) {
    state.videoZoomFactor = zoomFactorFromV4l2(*zoom, v);
  }
  if (read(V4L2_CID_FLASH_LED_MODE, v)) {
    state.torchMode = v == V4L2_FLASH_LED_MODE_TORCH ? AVCaptureTorchModeOn : AVCaptureTorchModeOff;
  }
  if (auto intensity = info_.control(V4L2_CID_FLASH_TORCH_INTENSITY);
      intensity && read(V4L2_CID_FLASH_TORCH_INTENSITY, v) &&
      intensity->maximum > intensity->minimum) {
    state.torchLevel = static_cast<float>(v - intensity->minimum) /
                       static_cast<float>(intensity->maximum - intensity->minimum);
  }
  if (read(V4L2_CID_EXPOSURE_AUTO_PRIORITY, v))
    state.automaticallyEnablesLowLightBoostWhenAvailable = v != 0;
  if (auto bias = info_.control(V4L2_CID_AUTO_EXPOSURE_BIAS);
      bias && read(V4L2_CID_AUTO_EXPOSURE_BIAS, v)) {
    int64_t milli = v;
    if (bias->type == V4L2_CTRL_TYPE_INTEGER_MENU) {
      for (const auto& m : bias->menu) {
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
  int64_t v = 0;
  bool autoExposure = state.exposureMode == AVCaptureExposureModeContinuousAutoExposure;
  if (autoExposure && read(V4L2_CID_EXPOSURE_ABSOLUTE, v) && v > 0) {
    state.exposureDuration = exposureFromV4l2(v);
  }
  if (autoExposure) {
    if (auto iso = info_.control(V4L2_CID_ISO_SENSITIVITY);
        iso && read(V4L2_CID_ISO_SENSITIVITY, v)) {
      for (const auto& m : iso->menu) {
        if (static_cast<int64_t>(m.index) == v) state.ISO = static_cast<float>(m.value);
      }
    } else if (!iso && read(V4L2_CID_GAIN, v)) {
      state.ISO = static_cast<float>(v);
    }
  }
  if (state.focusMode != AVCaptureFocusModeLocked) {
    if (auto focus = info_.control(V4L2_CID_FOCUS_ABSOLUTE);
        focus && read(V4L2_CID_FOCUS_ABSOLUTE, v))
      state.lensPosition = lensPositionFromFocus(*focus, v);
  }
  if (state.whiteBalanceMode != AVCaptureWhiteBalanceModeLocked &&
      read(V4L2_CID_WHITE_BALANCE_TEMPERATURE, v) && v > 0) {
    state.whiteBalanceGains = whiteBalanceGainsForTemperatureAndTint({static_cast<float>(v), 0.0f});
  }
}

}  // namespace oxelo
