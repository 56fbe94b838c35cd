#include "platform/camera/V4l2Mapping.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/camera/WhiteBalanceModel.h"

namespace oxelo {

namespace {

// Native formats capture can convert, in order of preference.
struct Native {
  uint32_t fourcc;
  const char* name;
  int rank;
};
// NM12 is NV12 in two planes, which only multi-planar nodes offer.
constexpr Native kNatives[] = {
    {V4L2_PIX_FMT_NV12, "NV12", 0},   {V4L2_PIX_FMT_NV12M, "NM12", 0},
    {V4L2_PIX_FMT_NV21, "NV21", 0},   {V4L2_PIX_FMT_YUV420, "YU12", 0},
    {V4L2_PIX_FMT_YVU420, "YV12", 0}, {V4L2_PIX_FMT_YUYV, "YUYV", 1},
    {V4L2_PIX_FMT_UYVY, "UYVY", 1},   {V4L2_PIX_FMT_YVYU, "YVYU", 1},
    {V4L2_PIX_FMT_VYUY, "VYUY", 1},   {V4L2_PIX_FMT_MJPEG, "MJPG", 2},
    {V4L2_PIX_FMT_JPEG, "MJPG", 2},
};

const Native* nativeOf(uint32_t fourcc) {
  for (const auto& n : kNatives) {
    if (n.fourcc == fourcc) return &n;
  }
  return nullptr;
}

CaptureTime timeOf(uint32_t numerator, uint32_t denominator) {
  if (numerator == 0 || denominator == 0 ||
      denominator > static_cast<uint32_t>(std::numeric_limits<int32_t>::max()))
    return CaptureTime::invalid();
  return CaptureTime::make(numerator, static_cast<int32_t>(denominator));
}

std::vector<AVFrameRateRange> rangesOf(const std::vector<V4l2FrameInterval>& intervals) {
  std::vector<AVFrameRateRange> ranges;
  for (const auto& i : intervals) {
    auto r = AVFrameRateRange::fromDurations(timeOf(i.shortestNumerator, i.shortestDenominator),
                                             timeOf(i.longestNumerator, i.longestDenominator));
    if (r.maxFrameRate <= 0) continue;
    bool seen = false;
    for (const auto& have : ranges) {
      seen = seen || (have.minFrameRate == r.minFrameRate && have.maxFrameRate == r.maxFrameRate);
    }
    if (!seen) ranges.push_back(r);
  }
  std::sort(ranges.begin(), ranges.end(),
            [](const auto& a, const auto& b) { return a.maxFrameRate < b.maxFrameRate; });
  return ranges;
}

// The lowest and highest value a control offers: its menu values for an
// integer menu, else its range.
void limitsOf(const V4l2Control& c, double& low, double& high) {
  if (c.type == V4L2_CTRL_TYPE_INTEGER_MENU && !c.menu.empty()) {
    low = high = static_cast<double>(c.menu.front().value);
    for (const auto& m : c.menu) {
      low = std::min(low, static_cast<double>(m.value));
      high = std::max(high, static_cast<double>(m.value));
    }
    return;
  }
  low = static_cast<double>(c.minimum);
  high = static_cast<double>(c.maximum);
}

}  // namespace

std::vector<CaptureDeviceFormat> mapV4l2Formats(const V4l2DeviceInfo& info) {
  struct Entry {
    CaptureDeviceFormat format;
    int rank;
  };
  CaptureDeviceFormat limits;
  const auto roles = v4l2ControlRoles(info);
  double low = 0, high = 0;
  if (roles.iso) {
    limitsOf(*roles.iso, low, high);
    limits.minISO = static_cast<float>(low);
    limits.maxISO = static_cast<float>(high);
  }
  if (auto exposure = roles.exposureTime) {
    limits.minExposureDuration = exposureFromV4l2(std::max<int64_t>(1, exposure->minimum));
    limits.maxExposureDuration = exposureFromV4l2(std::max<int64_t>(1, exposure->maximum));
  }
  if (roles.zoom) limits.videoMaxZoomFactor = maxZoomFactorOf(*roles.zoom);
  limits.videoHDRSupported = roles.hdr != nullptr;

  std::vector<Entry> entries;
  for (const auto& pixel : info.formats) {
    const Native* native = nativeOf(pixel.fourcc);
    if (!native) continue;
    for (const auto& size : pixel.sizes) {
      if (size.width == 0 || size.height == 0 || size.width > 65535 || size.height > 65535)
        continue;
      for (const char* subtype : {kPixelFormat420VideoRange, kPixelFormat420FullRange}) {
        CaptureDeviceFormat f = limits;
        f.mediaSubType = subtype;
        f.width = static_cast<int32_t>(size.width);
        f.height = static_cast<int32_t>(size.height);
        f.videoSupportedFrameRateRanges = rangesOf(size.intervals);
        f.nativePixelFormat = native->name;
        entries.push_back({std::move(f), native->rank});
      }
    }
  }
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    int64_t areaA = int64_t{a.format.width} * a.format.height;
    int64_t areaB = int64_t{b.format.width} * b.format.height;
    if (areaA != areaB) return areaA < areaB;
    if (a.format.width != b.format.width) return a.format.width < b.format.width;
    return a.rank < b.rank;
  });
  std::vector<CaptureDeviceFormat> formats;
  for (auto& e : entries) formats.push_back(std::move(e.format));
  return formats;
}

V4l2ControlRoles v4l2ControlRoles(const V4l2DeviceInfo& info) {
  auto writable = [&](uint32_t id) {
    auto control = info.control(id);
    return control && control->writable() ? control : nullptr;
  };
  V4l2ControlRoles r;
  if (auto mode = writable(V4L2_CID_EXPOSURE_AUTO)) {
    auto first = [&](std::initializer_list<uint32_t> indices) -> int64_t {
      for (uint32_t i : indices) {
        if (mode->hasMenuIndex(i)) return i;
      }
      return -1;
    };
    r.exposureAutoOn = first({V4L2_EXPOSURE_AUTO, V4L2_EXPOSURE_APERTURE_PRIORITY});
    r.exposureManual = first({V4L2_EXPOSURE_MANUAL, V4L2_EXPOSURE_SHUTTER_PRIORITY});
    if (r.exposureAutoOn >= 0 || r.exposureManual >= 0) r.exposureAuto = mode;
  }
  r.autoGain = writable(V4L2_CID_AUTOGAIN);
  r.exposureTime = writable(V4L2_CID_EXPOSURE_ABSOLUTE);
  for (uint32_t id : {V4L2_CID_ISO_SENSITIVITY, V4L2_CID_GAIN, V4L2_CID_ANALOGUE_GAIN}) {
    if ((r.iso = writable(id))) break;
  }
  if (r.iso && r.iso->id == V4L2_CID_ISO_SENSITIVITY)
    r.isoAuto = writable(V4L2_CID_ISO_SENSITIVITY_AUTO);
  r.bias = writable(V4L2_CID_AUTO_EXPOSURE_BIAS);
  r.whiteBalanceAuto = writable(V4L2_CID_AUTO_WHITE_BALANCE);
  r.whiteBalancePreset = writable(V4L2_CID_AUTO_N_PRESET_WHITE_BALANCE);
  r.whiteBalanceOnce = writable(V4L2_CID_DO_WHITE_BALANCE);
  r.temperature = writable(V4L2_CID_WHITE_BALANCE_TEMPERATURE);
  r.focusAuto = writable(V4L2_CID_FOCUS_AUTO);
  r.focusStart = writable(V4L2_CID_AUTO_FOCUS_START);
  r.focusStop = writable(V4L2_CID_AUTO_FOCUS_STOP);
  r.focusStatus = info.control(V4L2_CID_AUTO_FOCUS_STATUS);
  r.focusPosition = writable(V4L2_CID_FOCUS_ABSOLUTE);
  r.zoom = writable(V4L2_CID_ZOOM_ABSOLUTE);
  if (auto led = writable(V4L2_CID_FLASH_LED_MODE);
      led && led->hasMenuIndex(V4L2_FLASH_LED_MODE_TORCH))
    r.ledMode = led;
  if (r.ledMode) r.torchIntensity = writable(V4L2_CID_FLASH_TORCH_INTENSITY);
  if (!r.ledMode) r.illuminator = writable(V4L2_CID_ILLUMINATORS_1);
  r.lowLightBoost = writable(V4L2_CID_EXPOSURE_AUTO_PRIORITY);
  r.hdr = writable(V4L2_CID_WIDE_DYNAMIC_RANGE);
  return r;
}

bool V4l2ControlRoles::automaticWhiteBalance() const {
  return whiteBalanceAuto ||
         (whiteBalancePreset && whiteBalancePreset->hasMenuIndex(V4L2_WHITE_BALANCE_AUTO));
}

CaptureDeviceCapabilities mapV4l2Capabilities(const V4l2DeviceInfo& info) {
  using C = CaptureDeviceCapabilities;
  const auto r = v4l2ControlRoles(info);
  CaptureDeviceCapabilities c;

  c.focusModes = C::modeBit(AVCaptureFocusModeLocked);
  if (r.focusAuto) c.focusModes |= C::modeBit(AVCaptureFocusModeContinuousAutoFocus);
  if (r.focusStart) c.focusModes |= C::modeBit(AVCaptureFocusModeAutoFocus);
  c.lockingFocusWithCustomLensPosition = r.focusPosition != nullptr;

  if (r.manualExposure()) c.exposureModes |= C::modeBit(AVCaptureExposureModeLocked);
  if (r.automaticExposure())
    c.exposureModes |= C::modeBit(AVCaptureExposureModeContinuousAutoExposure);
  if (r.manualExposure() && r.exposureTime)
    c.exposureModes |= C::modeBit(AVCaptureExposureModeCustom);
  if (r.bias) {
    double low = 0, high = 0;
    limitsOf(*r.bias, low, high);
    c.minExposureTargetBias = static_cast<float>(low / 1000.0);
    c.maxExposureTargetBias = static_cast<float>(high / 1000.0);
  }

  // Locked needs a way out of automatic: the boolean, or a manual preset.
  if (r.whiteBalanceAuto || !r.whiteBalancePreset ||
      r.whiteBalancePreset->hasMenuIndex(V4L2_WHITE_BALANCE_MANUAL))
    c.whiteBalanceModes = C::modeBit(AVCaptureWhiteBalanceModeLocked);
  if (r.automaticWhiteBalance())
    c.whiteBalanceModes |= C::modeBit(AVCaptureWhiteBalanceModeContinuousAutoWhiteBalance);
  if (r.whiteBalanceOnce)
    c.whiteBalanceModes |= C::modeBit(AVCaptureWhiteBalanceModeAutoWhiteBalance);
  if (auto temperature = r.temperature;
      temperature && C::has(c.whiteBalanceModes, AVCaptureWhiteBalanceModeLocked)) {
    c.lockingWhiteBalanceWithCustomDeviceGains = true;
    float top = 1.0f;
    for (int64_t kelvin : {temperature->minimum, temperature->maximum}) {
      auto g = whiteBalanceGainsForTemperatureAndTint({static_cast<float>(kelvin), 0.0f});
      top = std::max({top, g.redGain, g.greenGain, g.blueGain});
    }
    c.maxWhiteBalanceGain = top;
  }

  c.torch = r.torch();
  c.lowLightBoost = r.lowLightBoost != nullptr;
  return c;
}

AVCaptureDevicePosition reportedV4l2Position(const V4l2DeviceInfo& info) {
  if (auto orientation = info.control(V4L2_CID_CAMERA_ORIENTATION)) {
    if (orientation->value == V4L2_CAMERA_ORIENTATION_FRONT) return AVCaptureDevicePositionFront;
    if (orientation->value == V4L2_CAMERA_ORIENTATION_BACK) return AVCaptureDevicePositionBack;
  }
  if (info.placement == "front") return AVCaptureDevicePositionFront;
  if (info.placement == "back") return AVCaptureDevicePositionBack;
  return AVCaptureDevicePositionUnspecified;
}

std::vector<AVCaptureDevicePosition> assignV4l2Positions(
    const std::vector<AVCaptureDevicePosition>& reported) {
  bool haveBack =
      std::find(reported.begin(), reported.end(), AVCaptureDevicePositionBack) != reported.end();
  std::vector<AVCaptureDevicePosition> positions;
  for (auto p : reported) {
    if (p != AVCaptureDevicePositionUnspecified) {
      positions.push_back(p);
      continue;
    }
    positions.push_back(haveBack ? AVCaptureDevicePositionFront : AVCaptureDevicePositionBack);
    haveBack = true;
  }
  return positions;
}

CaptureDeviceDescription describeV4l2Device(const V4l2DeviceInfo& info,
                                            AVCaptureDevicePosition position) {
  CaptureDeviceDescription d;
  d.uniqueID = "v4l2:" + (info.busInfo.empty() ? info.path : info.busInfo);
  d.localizedName = info.card.empty() ? info.path : info.card;
  d.deviceType = AVCaptureDeviceTypeBuiltInWideAngleCamera;
  d.position = position;
  d.location = info.path;
  d.formats = mapV4l2Formats(info);
  d.capabilities = mapV4l2Capabilities(info);
  d.mounting = v4l2Mounting(info);
  return d;
}

CameraMounting v4l2Mounting(const V4l2DeviceInfo& info) {
  CameraMounting m;
  m.facing = CameraFacing::external;
  if (auto orientation = info.control(V4L2_CID_CAMERA_ORIENTATION)) {
    if (orientation->value == V4L2_CAMERA_ORIENTATION_FRONT) m.facing = CameraFacing::front;
    if (orientation->value == V4L2_CAMERA_ORIENTATION_BACK) m.facing = CameraFacing::back;
  } else if (info.busInfo.rfind("usb-", 0) != 0) {
    if (info.placement == "front") m.facing = CameraFacing::front;
    if (info.placement == "back") m.facing = CameraFacing::back;
  }
  if (auto rotation = info.control(V4L2_CID_CAMERA_SENSOR_ROTATION)) {
    int64_t degrees = ((rotation->value % 360) + 360) % 360;
    m.sensorRotation = static_cast<int32_t>((degrees + 45) / 90 % 4 * 90);
  }
  return m;
}

V4l2FrameColour v4l2FrameColour(uint32_t colorspace, uint32_t ycbcrEncoding,
                                uint32_t quantization) {
  auto space = static_cast<v4l2_colorspace>(colorspace);
  uint32_t encoding = ycbcrEncoding == V4L2_YCBCR_ENC_DEFAULT
                          ? static_cast<uint32_t>(V4L2_MAP_YCBCR_ENC_DEFAULT(space))
                          : ycbcrEncoding;
  uint32_t quant =
      quantization == V4L2_QUANTIZATION_DEFAULT
          ? static_cast<uint32_t>(V4L2_MAP_QUANTIZATION_DEFAULT(false, space, encoding))
          : quantization;
  V4l2FrameColour c;
  c.matrix = (encoding == V4L2_YCBCR_ENC_601 || encoding == V4L2_YCBCR_ENC_XV601)
                 ? ColourMatrix::bt601
                 : ColourMatrix::bt709;
  c.range = quant == V4L2_QUANTIZATION_FULL_RANGE ? ColourRange::full : ColourRange::video;
  return c;
}

uint32_t v4l2FourccFor(const V4l2DeviceInfo& info, const CaptureDeviceFormat& format) {
  for (const auto& f : info.formats) {
    auto native = nativeOf(f.fourcc);
    if (!native || format.nativePixelFormat != native->name) continue;
    for (const auto& size : f.sizes) {
      if (static_cast<int32_t>(size.width) == format.width &&
          static_cast<int32_t>(size.height) == format.height)
        return f.fourcc;
    }
  }
  return 0;
}

int64_t snapToControl(const V4l2Control& control, double value) {
  double low = static_cast<double>(control.minimum);
  double high = static_cast<double>(control.maximum);
  double v = std::clamp(value, low, std::max(low, high));
  if (control.step > 1) v = low + std::round((v - low) / control.step) * control.step;
  return std::min(control.maximum, static_cast<int64_t>(std::llround(v)));
}

float lensPositionFromFocus(const V4l2Control& focus, int64_t value) {
  if (focus.maximum <= focus.minimum) return 0.0f;
  double p = static_cast<double>(value - focus.minimum) /
             static_cast<double>(focus.maximum - focus.minimum);
  return static_cast<float>(std::clamp(p, 0.0, 1.0));
}

int64_t focusFromLensPosition(const V4l2Control& focus, float lensPosition) {
  double span = static_cast<double>(focus.maximum - focus.minimum);
  return snapToControl(focus, static_cast<double>(focus.minimum) + lensPosition * span);
}

double maxZoomFactorOf(const V4l2Control& zoom) {
  if (zoom.maximum <= zoom.minimum) return 1.0;
  if (zoom.minimum > 0)
    return static_cast<double>(zoom.maximum) / static_cast<double>(zoom.minimum);
  return 4.0;
}

double zoomFactorFromV4l2(const V4l2Control& zoom, int64_t value) {
  if (zoom.maximum <= zoom.minimum) return 1.0;
  double p =
      static_cast<double>(value - zoom.minimum) / static_cast<double>(zoom.maximum - zoom.minimum);
  return 1.0 + std::clamp(p, 0.0, 1.0) * (maxZoomFactorOf(zoom) - 1.0);
}

int64_t v4l2FromZoomFactor(const V4l2Control& zoom, double factor) {
  double top = maxZoomFactorOf(zoom);
  if (top <= 1.0) return zoom.minimum;
  double p = (factor - 1.0) / (top - 1.0);
  return snapToControl(zoom, static_cast<double>(zoom.minimum) +
                                 p * static_cast<double>(zoom.maximum - zoom.minimum));
}

CaptureTime exposureFromV4l2(int64_t hundredMicroseconds) {
  return CaptureTime::make(hundredMicroseconds, 10000);
}

int64_t v4l2FromExposure(const V4l2Control& exposure, CaptureTime duration) {
  return snapToControl(exposure, duration.seconds() * 10000.0);
}

uint32_t nearestMenuIndex(const V4l2Control& menu, int64_t value) {
  uint32_t best = menu.menu.empty() ? static_cast<uint32_t>(std::max<int64_t>(0, menu.minimum))
                                    : menu.menu.front().index;
  int64_t bestDistance = std::numeric_limits<int64_t>::max();
  for (const auto& m : menu.menu) {
    int64_t distance = m.value > value ? m.value - value : value - m.value;
    if (distance < bestDistance) {
      bestDistance = distance;
      best = m.index;
    }
  }
  return best;
}

}  // namespace oxelo
