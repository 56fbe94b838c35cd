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

CaptureDeviceFormatPtr CameraStatusSource::activeFormat() const {
  return device_ ? device_->activeFormat() : nullptr;
}

bool CameraStatusSource::isTorchAvailable() const { return device_ && device_->isTorchAvailable(); }
int64_t CameraStatusSource::captureDevicePosition() const {
  return device_ ? device_->position() : AVCaptureDevicePositionBack;
}
std::string CameraStatusSource::captureDeviceType() const {
  return device_ ? device_->deviceType() : std::string();
}

double CameraStatusSource::exposure() const {
  return device_ ? device_->exposureDuration().seconds() : 0;
}
bool CameraStatusSource::autoExposure() const { return isAutomatic(exposureMode()); }
bool CameraStatusSource::aeLock() const {
  return device_ && exposureMode() == AVCaptureExposureModeLocked;
}
int64_t CameraStatusSource::exposureMode() const { return device_ ? device_->exposureMode() : 0; }
double CameraStatusSource::whiteBalanceTemperature() const {
  if (!device_) return 0;
  return device_
      ->temperatureAndTintValuesForDeviceWhiteBalanceGains(device_->deviceWhiteBalanceGains())
      .temperature;
}
bool CameraStatusSource::autoWhiteBalance() const { return isAutomatic(whiteBalanceMode()); }
bool CameraStatusSource::awbLock() const {
  return device_ && whiteBalanceMode() == AVCaptureWhiteBalanceModeLocked;
}
int64_t CameraStatusSource::whiteBalanceMode() const {
  return device_ ? device_->whiteBalanceMode() : 0;
}
double CameraStatusSource::lensPosition() const { return device_ ? device_->lensPosition() : 0; }
bool CameraStatusSource::autoFocus() const { return isAutomatic(focusMode()); }
bool CameraStatusSource::afLock() const {
  return device_ && focusMode() == AVCaptureFocusModeLocked;
}
int64_t CameraStatusSource::focusMode() const { return device_ ? device_->focusMode() : 0; }
double CameraStatusSource::ISO() const { return device_ ? device_->ISO() : 0; }
double CameraStatusSource::exposureTargetBias() const {
  return device_ ? device_->exposureTargetBias() : 0;
}
double CameraStatusSource::zoomScale() const { return device_ ? device_->videoZoomFactor() : 1; }

double CameraStatusSource::minExposure() const {
  auto format = activeFormat();
  return format ? format->minExposureDuration.seconds() : 0;
}
double CameraStatusSource::maxExposure() const {
  auto format = activeFormat();
  return format ? format->maxExposureDuration.seconds() : 0;
}
bool CameraStatusSource::isExposureModeSupported(int64_t mode) const {
  return device_ && device_->isExposureModeSupported(mode);
}
bool CameraStatusSource::isExposurePointOfInterestSupported() const {
  return device_ && device_->isExposurePointOfInterestSupported();
}
bool CameraStatusSource::isLockingWhiteBalanceWithCustomDeviceGainsSupported() const {
  return device_ && device_->isLockingWhiteBalanceWithCustomDeviceGainsSupported();
}
bool CameraStatusSource::isWhiteBalanceModeSupported(int64_t mode) const {
  return device_ && device_->isWhiteBalanceModeSupported(mode);
}
bool CameraStatusSource::isLockingFocusWithCustomLensPositionSupported() const {
  return device_ && device_->isLockingFocusWithCustomLensPositionSupported();
}
bool CameraStatusSource::isFocusPointOfInterestSupported() const {
  return device_ && device_->isFocusPointOfInterestSupported();
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
  return device_ ? device_->minExposureTargetBias() : 0;
}
double CameraStatusSource::maxExposureTargetBias() const {
  return device_ ? device_->maxExposureTargetBias() : 0;
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
