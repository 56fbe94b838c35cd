#include "transport/CameraStatusSource.h"

#include "platform/camera/CameraSystem.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"

namespace oxelo {

namespace {
bool isAutomatic(int64_t mode) { return mode == 1 || mode == 2; }
}  // namespace

CameraStatusSource::CameraStatusSource(std::shared_ptr<CaptureDevice> device,
                                       std::shared_ptr<BatteryMonitor> battery)
    : device_(std::move(device)), battery_(std::move(battery)) {}

std::shared_ptr<CaptureDevice> CameraStatusSource::deviceFromSettings() {
  auto system = CameraSystem::current();
  if (!system || system->devices().empty()) return nullptr;
  auto position = UserDefaults::standard()->boolForKey(keys::frontCam)
                      ? AVCaptureDevicePositionFront
                      : AVCaptureDevicePositionBack;
  if (auto device = system->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                                        AVMediaTypeVideo, position))
    return device;
  for (const auto& device : system->devices())
    if (device->position() == position) return device;
  return system->devices().front();
}

void CameraStatusSource::followCapture(std::weak_ptr<LFVideoCapture> capture) {
  std::lock_guard lock(captureMutex_);
  capture_ = std::move(capture);
  following_ = true;
}

std::shared_ptr<CaptureDevice> CameraStatusSource::device() const {
  std::shared_ptr<LFVideoCapture> capture;
  {
    std::lock_guard lock(captureMutex_);
    if (!following_) return device_;
    capture = capture_.lock();
  }
  // A capture front without a camera has none to tell of.
  return capture ? capture->device() : device_;
}

CaptureDeviceFormatPtr CameraStatusSource::activeFormat() const {
  auto d = device();
  return d ? d->activeFormat() : nullptr;
}

// Each value asks the camera in use once: a switch between two reads of one
// value cannot mix two cameras.
bool CameraStatusSource::isTorchAvailable() const {
  auto d = device();
  return d && d->isTorchAvailable();
}
int64_t CameraStatusSource::captureDevicePosition() const {
  auto d = device();
  return d ? d->position() : AVCaptureDevicePositionBack;
}
std::string CameraStatusSource::captureDeviceType() const {
  auto d = device();
  return d ? d->deviceType() : std::string();
}

double CameraStatusSource::exposure() const {
  auto d = device();
  return d ? d->exposureDuration().seconds() : 0;
}
bool CameraStatusSource::autoExposure() const { return isAutomatic(exposureMode()); }
bool CameraStatusSource::aeLock() const {
  auto d = device();
  return d && d->exposureMode() == AVCaptureExposureModeLocked;
}
int64_t CameraStatusSource::exposureMode() const {
  auto d = device();
  return d ? d->exposureMode() : 0;
}
double CameraStatusSource::whiteBalanceTemperature() const {
  auto d = device();
  if (!d) return 0;
  return d->temperatureAndTintValuesForDeviceWhiteBalanceGains(d->deviceWhiteBalanceGains())
      .temperature;
}
bool CameraStatusSource::autoWhiteBalance() const { return isAutomatic(whiteBalanceMode()); }
bool CameraStatusSource::awbLock() const {
  auto d = device();
  return d && d->whiteBalanceMode() == AVCaptureWhiteBalanceModeLocked;
}
int64_t CameraStatusSource::whiteBalanceMode() const {
  auto d = device();
  return d ? d->whiteBalanceMode() : 0;
}
double CameraStatusSource::lensPosition() const {
  auto d = device();
  return d ? d->lensPosition() : 0;
}
bool CameraStatusSource::autoFocus() const { return isAutomatic(focusMode()); }
bool CameraStatusSource::afLock() const {
  auto d = device();
  return d && d->focusMode() == AVCaptureFocusModeLocked;
}
int64_t CameraStatusSource::focusMode() const {
  auto d = device();
  return d ? d->focusMode() : 0;
}
double CameraStatusSource::ISO() const {
  auto d = device();
  return d ? d->ISO() : 0;
}
double CameraStatusSource::exposureTargetBias() const {
  auto d = device();
  return d ? d->exposureTargetBias() : 0;
}
double CameraStatusSource::zoomScale() const {
  auto d = device();
  return d ? d->videoZoomFactor() : 1;
}

double CameraStatusSource::minExposure() const {
  auto format = activeFormat();
  return format ? format->minExposureDuration.seconds() : 0;
}
double CameraStatusSource::maxExposure() const {
  auto format = activeFormat();
  return format ? format->maxExposureDuration.seconds() : 0;
}
bool CameraStatusSource::isExposureModeSupported(int64_t mode) const {
  auto d = device();
  return d && d->isExposureModeSupported(mode);
}
bool CameraStatusSource::isExposurePointOfInterestSupported() const {
  auto d = device();
  return d && d->isExposurePointOfInterestSupported();
}
bool CameraStatusSource::isLockingWhiteBalanceWithCustomDeviceGainsSupported() const {
  auto d = device();
  return d && d->isLockingWhiteBalanceWithCustomDeviceGainsSupported();
}
bool CameraStatusSource::isWhiteBalanceModeSupported(int64_t mode) const {
  auto d = device();
  return d && d->isWhiteBalanceModeSupported(mode);
}
bool CameraStatusSource::isLockingFocusWithCustomLensPositionSupported() const {
  auto d = device();
  return d && d->isLockingFocusWithCustomLensPositionSupported();
}
bool CameraStatusSource::isFocusPointOfInterestSupported() const {
  auto d = device();
  return d && d->isFocusPointOfInterestSupported();
}
double CameraStatusSource::minISO() const {
  auto format = activeFormat();
  return format ? format->minISO : 0;
}
double CameraStatusSource::maxISO() const {
  auto format = activeFormat();
  return format ? format->maxISO : 0;
}
double CameraStatusSource::minExposureTargetBias() const {
  auto d = device();
  return d ? d->minExposureTargetBias() : 0;
}
double CameraStatusSource::maxExposureTargetBias() const {
  auto d = device();
  return d ? d->maxExposureTargetBias() : 0;
}
double CameraStatusSource::maxZoomScale() const {
  auto format = activeFormat();
  return format ? format->videoMaxZoomFactor : 1;
}

double CameraStatusSource::batteryLevel() const {
  return battery_ ? std::max(0.0f, battery_->batteryLevel()) : 0;
}
int64_t CameraStatusSource::batteryState() const {
  return battery_ ? static_cast<int64_t>(battery_->batteryState()) : 0;
}

}  // namespace oxelo
