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

std::shared_ptr<LFVideoCapture> CameraStatusSource::capture() const {
  std::lock_guard lock(captureMutex_);
  return following_ ? capture_.lock() : nullptr;
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

int64_t aeafLockOf(const LFVideoCapture& capture) {
  if (capture.aeLock() && capture.afLock()) return 2;
  auto device = capture.device();
  const bool watching = device && device->isSubjectAreaChangeMonitoringEnabled();
  if (!capture.autoExposure() && !capture.autoFocus() && !watching) return 1;
  return 0;
}

// Each value asks the capture front or the camera once: a switch between two
// reads of one value cannot mix two cameras.
int64_t CameraStatusSource::torch() const {
  auto c = capture();
  return c ? c->torch() : 0;
}
int64_t CameraStatusSource::aeafLock() const {
  auto c = capture();
  return c ? aeafLockOf(*c) : 0;
}
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
  if (auto c = capture()) return c->exposure();
  auto d = device();
  return d ? d->exposureDuration().seconds() : 0;
}
bool CameraStatusSource::autoExposure() const {
  if (auto c = capture()) return c->autoExposure();
  return isAutomatic(exposureMode());
}
bool CameraStatusSource::aeLock() const {
  if (auto c = capture()) return c->aeLock();
  return false;
}
int64_t CameraStatusSource::exposureMode() const {
  auto d = device();
  return d ? d->exposureMode() : 0;
}
double CameraStatusSource::whiteBalanceTemperature() const {
  if (auto c = capture()) return c->wbTempAndTint().temperature;
  auto d = device();
  if (!d) return 0;
  return d->temperatureAndTintValuesForDeviceWhiteBalanceGains(d->deviceWhiteBalanceGains())
      .temperature;
}
bool CameraStatusSource::autoWhiteBalance() const {
  if (auto c = capture()) return c->autoWhiteBalance();
  return isAutomatic(whiteBalanceMode());
}
bool CameraStatusSource::awbLock() const {
  if (auto c = capture()) return c->awbLock();
  return false;
}
int64_t CameraStatusSource::whiteBalanceMode() const {
  auto d = device();
  return d ? d->whiteBalanceMode() : 0;
}
double CameraStatusSource::lensPosition() const {
  if (auto c = capture()) return c->lensPosition();
  auto d = device();
  return d ? d->lensPosition() : 0;
}
bool CameraStatusSource::autoFocus() const {
  if (auto c = capture()) return c->autoFocus();
  return isAutomatic(focusMode());
}
bool CameraStatusSource::afLock() const {
  if (auto c = capture()) return c->afLock();
  return false;
}
int64_t CameraStatusSource::focusMode() const {
  auto d = device();
  return d ? d->focusMode() : 0;
}
double CameraStatusSource::ISO() const {
  if (auto c = capture()) return c->ISO();
  auto d = device();
  return d ? d->ISO() : 0;
}
double CameraStatusSource::exposureTargetBias() const {
  if (auto c = capture()) return c->exposureTargetBias();
  auto d = device();
  return d ? d->exposureTargetBias() : 0;
}
double CameraStatusSource::zoomScale() const {
  if (auto c = capture()) return c->zoomScale();
  auto d = device();
  return d ? d->videoZoomFactor() : 1;
}

double CameraStatusSource::minExposure() const {
  if (auto c = capture()) return c->minExposure();
  auto format = activeFormat();
  return format ? format->minExposureDuration.seconds() : 0;
}
double CameraStatusSource::maxExposure() const {
  if (auto c = capture()) return c->maxExposure();
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
  if (auto c = capture()) return c->minISO();
  auto format = activeFormat();
  return format ? format->minISO : 0;
}
double CameraStatusSource::maxISO() const {
  if (auto c = capture()) return c->maxISO();
  auto format = activeFormat();
  return format ? format->maxISO : 0;
}
double CameraStatusSource::minExposureTargetBias() const {
  if (auto c = capture()) return c->minExposureTargetBias();
  auto d = device();
  return d ? d->minExposureTargetBias() : 0;
}
double CameraStatusSource::maxExposureTargetBias() const {
  if (auto c = capture()) return c->maxExposureTargetBias();
  auto d = device();
  return d ? d->maxExposureTargetBias() : 0;
}
double CameraStatusSource::maxZoomScale() const {
  if (auto c = capture()) return c->maxZoomScale();
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
