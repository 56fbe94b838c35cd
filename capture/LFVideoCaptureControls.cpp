// The camera controls of LFVideoCapture: zoom, point of interest, the
// automatic modes and their locks, lens, exposure, ISO, bias, white balance
// and torch, each carried to the camera model under its configuration lock.
#include <algorithm>

#include "capture/LFVideoCapture.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"

namespace oxelo {
namespace {

// Holds the device's configuration lock for a scope; false when it could not
// be had, and the change is then skipped.
class ConfigurationLock {
 public:
  explicit ConfigurationLock(CaptureDevice& device, std::string* error = nullptr)
      : device_(device), held_(device.lockForConfiguration(error)) {}
  ~ConfigurationLock() {
    if (held_) device_.unlockForConfiguration();
  }
  ConfigurationLock(const ConfigurationLock&) = delete;
  ConfigurationLock& operator=(const ConfigurationLock&) = delete;
  explicit operator bool() const { return held_; }

 private:
  CaptureDevice& device_;
  const bool held_;
};

// One of the three moded controls of the device: focus, exposure, white balance.
struct ModeControl {
  bool (CaptureDevice::*supported)(int64_t) const;
  int64_t (CaptureDevice::*mode)() const;
  bool (CaptureDevice::*set)(int64_t);
};
constexpr ModeControl kFocus{&CaptureDevice::isFocusModeSupported, &CaptureDevice::focusMode,
                             &CaptureDevice::setFocusMode};
constexpr ModeControl kExposure{&CaptureDevice::isExposureModeSupported,
                                &CaptureDevice::exposureMode, &CaptureDevice::setExposureMode};
constexpr ModeControl kWhiteBalance{&CaptureDevice::isWhiteBalanceModeSupported,
                                    &CaptureDevice::whiteBalanceMode,
                                    &CaptureDevice::setWhiteBalanceMode};
constexpr int64_t kLocked = 0, kOnce = 1, kContinuous = 2;

bool supports(const CaptureDevice& device, const ModeControl& control, int64_t mode) {
  return (device.*control.supported)(mode);
}

// Continuous where the device has it, else one-time, else none (-1).
int64_t bestAutomaticMode(const CaptureDevice& device, const ModeControl& control) {
  if (supports(device, control, kContinuous)) return kContinuous;
  if (supports(device, control, kOnce)) return kOnce;
  return -1;
}

bool isAutomatic(const CaptureDevice* device, const ModeControl& control) {
  if (!device) return false;
  const int64_t best = bestAutomaticMode(*device, control);
  return best >= 0 && (device->*control.mode)() == best;
}

// Sets `mode` under the lock where the device supports it.
void setModeIfSupported(CaptureDevice& device, const ModeControl& control, int64_t mode) {
  if (mode < 0 || !supports(device, control, mode)) return;
  ConfigurationLock lock(device);
  if (lock) (device.*control.set)(mode);
}

// After a tap: a one-time automatic pass where the device has one; else a
// continuous one, returned to locked on the main queue `seconds` later. The
// return holds the device, also when the camera has changed by then, and does
// not look whether the mode is still the one set here. The caller holds the
// lock.
void settleOnce(const std::shared_ptr<CaptureDevice>& device, const ModeControl& control,
                double seconds) {
  if (supports(*device, control, kOnce)) {
    (device.get()->*control.set)(kOnce);
    return;
  }
  if (!supports(*device, control, kContinuous)) return;
  (device.get()->*control.set)(kContinuous);
  MainQueue::postAfter(seconds,
                       [device, control] { setModeIfSupported(*device, control, kLocked); });
}

// The user's point (fractions of the picture as shown) in the device's
// coordinates, for the camera's position and the picture's orientation.
CapturePoint devicePoint(double x, double y, AVCaptureDevicePosition position,
                         int64_t orientation) {
  if (position == AVCaptureDevicePositionFront) x = 1.0 - x;
  switch (orientation) {
    case 4:
      return {1.0 - x, 1.0 - y};
    case 1:
      return {y, 1.0 - x};
    case 2:
      return {1.0 - y, x};
    default:
      return {x, y};  // 3, and anything unknown
  }
}

AVCaptureWhiteBalanceGains clampGains(AVCaptureWhiteBalanceGains gains, float maxGain) {
  const auto clampOne = [maxGain](float g) { return std::min(std::max(g, 1.0f), maxGain); };
  return {clampOne(gains.redGain), clampOne(gains.greenGain), clampOne(gains.blueGain)};
}

}  // namespace

double LFVideoCapture::zoomScale() const {
  auto d = device();
  return d ? d->videoZoomFactor() : 1.0;
}

double LFVideoCapture::maxZoomScale() const {
  auto d = device();
  auto format = d ? d->activeFormat() : nullptr;
  if (!format) return 1.0;
  const std::string& type = d->deviceType();
  const bool wide = type == AVCaptureDeviceTypeBuiltInTripleCamera ||
                    type == AVCaptureDeviceTypeBuiltInDualWideCamera;
  return std::min(format->videoMaxZoomFactor, wide ? 20.0 : 10.0);
}

void LFVideoCapture::setZoomScale(double scale) {
  auto d = device();
  auto format = d ? d->activeFormat() : nullptr;
  if (!format) return;
  const double m = format->videoMaxZoomFactor;
  if (m > 1.0 && m < 4.0) scale = m * scale * 0.25;
  scale = std::min(std::max(scale, 1.0), m);
  ConfigurationLock lock(*d);
  if (!lock) return;
  if (firstZoomScale_) {
    firstZoomScale_ = false;
    d->rampToVideoZoomFactorWithRate(scale, /*rate=*/5.0f);
  } else {
    d->setVideoZoomFactor(scale);
  }
}

void LFVideoCapture::setFocusPoint(double x, double y) {
  auto d = device();
  if (!d) return;
  const CapturePoint point =
      devicePoint(x, y, d->position(), videoCamera_->outputImageOrientation());
  {
    ConfigurationLock lock(*d);
    if (!lock) return;
    if (d->isFocusPointOfInterestSupported()) d->setFocusPointOfInterest(point);
    if (!afLock_) settleOnce(d, kFocus, 0.5);
    if (d->isExposurePointOfInterestSupported()) d->setExposurePointOfInterest(point);
    if (!aeLock_) settleOnce(d, kExposure, 0.5);
    if (!awbLock_) settleOnce(d, kWhiteBalance, 2.0);
    d->setSubjectAreaChangeMonitoringEnabled(true);
  }
  focusPoint_ = point;
}

void LFVideoCapture::subjectAreaDidChange() {
  auto d = device();
  if (!d) return;
  {
    ConfigurationLock lock(*d);
    if (lock) {
      d->setSubjectAreaChangeMonitoringEnabled(false);
      if (d->isFocusPointOfInterestSupported()) d->setFocusPointOfInterest({0.5, 0.5});
      if (d->isExposurePointOfInterestSupported()) d->setExposurePointOfInterest({0.5, 0.5});
    }
  }
  if (!aeLock_) setAutoExposure(true);
  if (!afLock_) setAutoFocus(true);
  if (!awbLock_) setAutoWhiteBalance(true);
  if (auto delegate = captureDelegate_.lock()) delegate->subjectAreaDidChange();
}

bool LFVideoCapture::customFocusSupported() const {
  auto d = device();
  return d && d->isFocusPointOfInterestSupported();
}

bool LFVideoCapture::customExposureSupported() const {
  auto d = device();
  return d && d->isExposureModeSupported(AVCaptureExposureModeCustom);
}

bool LFVideoCapture::autoFocus() const { return isAutomatic(device().get(), kFocus); }
bool LFVideoCapture::autoExposure() const { return isAutomatic(device().get(), kExposure); }
bool LFVideoCapture::autoWhiteBalance() const { return isAutomatic(device().get(), kWhiteBalance); }

void LFVideoCapture::setAutoFocus(bool on) {
  auto d = device();
  if (!d || autoFocus() == on) return;
  setModeIfSupported(*d, kFocus, on ? bestAutomaticMode(*d, kFocus) : kLocked);
}

void LFVideoCapture::setAutoExposure(bool on) {
  auto d = device();
  if (!d || autoExposure() == on) return;
  if (!on && d->exposureMode() == AVCaptureExposureModeCustom) return;
  setModeIfSupported(*d, kExposure, on ? bestAutomaticMode(*d, kExposure) : kLocked);
}

void LFVideoCapture::setAutoWhiteBalance(bool on) {
  auto d = device();
  if (!d || autoWhiteBalance() == on) return;
  setModeIfSupported(*d, kWhiteBalance, on ? bestAutomaticMode(*d, kWhiteBalance) : kLocked);
}

void LFVideoCapture::setAfLock(bool lock) {
  if (afLock_ == lock) return;
  afLock_ = lock;
  if (lock && autoFocus()) setAutoFocus(false);
}

void LFVideoCapture::setAeLock(bool lock) {
  if (aeLock_ == lock) return;
  aeLock_ = lock;
  if (lock && autoExposure()) setAutoExposure(false);
}

void LFVideoCapture::setAwbLock(bool lock) {
  if (awbLock_ == lock) return;
  awbLock_ = lock;
  if (lock && autoWhiteBalance()) setAutoWhiteBalance(false);
}

double LFVideoCapture::lensPosition() const {
  auto d = device();
  return d ? d->lensPosition() : 0.0;
}

void LFVideoCapture::setLensPosition(double position) {
  auto d = device();
  if (!d || !d->isLockingFocusWithCustomLensPositionSupported()) return;
  if (!(position >= 0.0 && position <= 1.0)) return;
  ConfigurationLock lock(*d);
  if (!lock) return;
  d->setSubjectAreaChangeMonitoringEnabled(false);
  d->setFocusModeLockedWithLensPosition(static_cast<float>(position));
}

bool LFVideoCapture::customExposure() const {
  auto d = device();
  return d && d->exposureMode() == AVCaptureExposureModeCustom;
}

void LFVideoCapture::setCustomExposure(bool on) {
  auto d = device();
  if (!d || customExposure() == on) return;
  setModeIfSupported(*d, kExposure, on ? AVCaptureExposureModeCustom : kLocked);
}

void LFVideoCapture::setExposureAndISO(double seconds, double iso) {
  auto d = device();
  auto format = d ? d->activeFormat() : nullptr;
  if (!format || !d->isExposureModeSupported(AVCaptureExposureModeCustom)) return;
  CaptureTime duration = AVCaptureExposureDurationCurrent;
  if (seconds > 0.0) {
    const CaptureTime present = d->exposureDuration();
    const CaptureTime wanted =
        CaptureTime::withSeconds(seconds, present.isValid() ? present.timescale : 1000000000);
    const CaptureTime longest = d->activeMaxExposureDuration();
    if (wanted < format->minExposureDuration) {
      duration = AVCaptureExposureDurationCurrent;  // too short: dropped, not raised
    } else if (wanted > longest) {
      duration = longest;
    } else {
      duration = wanted;
    }
  }
  float isoValue = static_cast<float>(iso);
  if (isoValue != AVCaptureISOCurrent)
    isoValue = std::min(std::max(isoValue, format->minISO), format->maxISO);
  ConfigurationLock lock(*d);
  if (!lock) return;
  d->setSubjectAreaChangeMonitoringEnabled(false);
  if (d->exposureTargetBias() != 0.0f) d->setExposureTargetBias(0.0f);
  d->setExposureModeCustomWithDurationISO(duration, isoValue);
}

void LFVideoCapture::setExposure(double seconds) {
  setExposureAndISO(seconds, AVCaptureISOCurrent);
}
void LFVideoCapture::setISO(double iso) { setExposureAndISO(0.0, iso); }

double LFVideoCapture::exposure() const {
  auto d = device();
  return d ? d->exposureDuration().seconds() : 0.0;
}

double LFVideoCapture::minExposure() const {
  auto d = device();
  auto format = d ? d->activeFormat() : nullptr;
  return format ? format->minExposureDuration.seconds() : 0.0;
}

double LFVideoCapture::maxExposure() const {
  auto d = device();
  return d ? d->activeMaxExposureDuration().seconds() : 0.0;
}

double LFVideoCapture::ISO() const {
  auto d = device();
  return d ? d->ISO() : 0.0;
}

double LFVideoCapture::minISO() const {
  auto d = device();
  auto format = d ? d->activeFormat() : nullptr;
  return format ? format->minISO : 0.0;
}

double LFVideoCapture::maxISO() const {
  auto d = device();
  auto format = d ? d->activeFormat() : nullptr;
  return format ? format->maxISO : 0.0;
}

double LFVideoCapture::exposureTargetBias() const {
  auto d = device();
  return d ? d->exposureTargetBias() : 0.0;
}

double LFVideoCapture::minExposureTargetBias() const {
  auto d = device();
  return d ? d->minExposureTargetBias() : 0.0;
}

double LFVideoCapture::maxExposureTargetBias() const {
  auto d = device();
  return d ? d->maxExposureTargetBias() : 0.0;
}

void LFVideoCapture::setExposureTargetBias(double bias) {
  auto d = device();
  if (!d) return;
  const float value = std::min(std::max(static_cast<float>(bias), d->minExposureTargetBias()),
                               d->maxExposureTargetBias());
  ConfigurationLock lock(*d);
  if (lock) d->setExposureTargetBias(value);
}

AVCaptureWhiteBalanceTemperatureAndTintValues LFVideoCapture::wbTempAndTint() const {
  auto d = device();
  if (!d) return {};
  return d->temperatureAndTintValuesForDeviceWhiteBalanceGains(
      clampGains(d->deviceWhiteBalanceGains(), d->maxWhiteBalanceGain()));
}

void LFVideoCapture::setWbTempAndTint(float temperature, float tint) {
  auto d = device();
  if (!d || !d->isLockingWhiteBalanceWithCustomDeviceGainsSupported()) return;
  ConfigurationLock lock(*d);
  if (!lock) return;
  d->setSubjectAreaChangeMonitoringEnabled(false);
  const AVCaptureWhiteBalanceGains gains =
      d->deviceWhiteBalanceGainsForTemperatureAndTintValues({temperature, tint});
  d->setWhiteBalanceModeLockedWithDeviceWhiteBalanceGains(
      clampGains(gains, d->maxWhiteBalanceGain()));
}

int64_t LFVideoCapture::torch() const {
  auto d = device();
  if (!d || d->torchMode() == AVCaptureTorchModeOff) return 0;
  const auto level = static_cast<int64_t>(d->torchLevel() * 5.0);
  return level != 0 ? level : torch_.load();
}

void LFVideoCapture::setTorch(int64_t level) {
  if (level > 5) return;
  auto d = device();
  if (!d) return;
  // The capture session of this model has no configuration of its own to
  // open and commit around the change: the device's lock is the only one.
  if (!d->isTorchAvailable()) {
    oxlog("Torch not available in current camera input");
    return;
  }
  std::string error;
  ConfigurationLock lock(*d, &error);
  if (!lock) {
    oxlog("Error while locking device for torch: {}", error);
    return;
  }
  if (level < 1) {
    d->setTorchMode(AVCaptureTorchModeOff);
    torch_ = level;
    return;
  }
  if (d->setTorchModeOnWithLevel(static_cast<float>(level) / 5.0f, &error)) torch_ = level;
}

}  // namespace oxelo
