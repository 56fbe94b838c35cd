#pragma once

#include <atomic>
#include <memory>

#include "platform/camera/CaptureDevice.h"
#include "platform/device/Battery.h"
#include "wire/StreamStatusSource.h"

namespace oxelo {

// The values of the tail blocks as long as no video capture front stands
// between the session and the camera: the camera model's device answers for
// the camera controls and ranges, the session's own flags for the rest, and
// the battery monitor for the battery. Properties that belong to a capture
// front (beauty, mirror, torch level, the locks) read as off.
//
// The flags are written on the main queue and read on rtmpSendQueue as
// single atomic values; the device answers from any thread.
class CameraStatusSource final : public StreamStatusSource {
 public:
  // `device` may be null (no camera): the ranges then read as 0.
  CameraStatusSource(std::shared_ptr<CaptureDevice> device,
                     std::shared_ptr<BatteryMonitor> battery);

  // The camera the settings choose: the front wide-angle camera when
  // `frontCam` is set, else the back wide-angle one; any camera at that
  // position, else the first camera, when there is no such one.
  static std::shared_ptr<CaptureDevice> deviceFromSettings();

  void setDim(bool dim) { dim_ = dim; }

  bool beautyFace() const override { return false; }
  int64_t beautyMethod() const override { return 0; }
  bool mirror() const override { return false; }
  bool dim() const override { return dim_; }
  int64_t torch() const override { return 0; }
  bool isTorchAvailable() const override;
  int64_t aeafLock() const override { return 0; }
  int64_t captureDevicePosition() const override;
  std::string captureDeviceType() const override;

  double exposure() const override;
  bool autoExposure() const override;
  bool aeLock() const override;
  int64_t exposureMode() const override;
  double whiteBalanceTemperature() const override;
  bool autoWhiteBalance() const override;
  bool awbLock() const override;
  int64_t whiteBalanceMode() const override;
  double lensPosition() const override;
  bool autoFocus() const override;
  bool afLock() const override;
  int64_t focusMode() const override;
  double ISO() const override;
  double exposureTargetBias() const override;
  double zoomScale() const override;

  double minExposure() const override;
  double maxExposure() const override;
  bool isExposureModeSupported(int64_t mode) const override;
  bool isExposurePointOfInterestSupported() const override;
  bool isLockingWhiteBalanceWithCustomDeviceGainsSupported() const override;
  bool isWhiteBalanceModeSupported(int64_t mode) const override;
  bool isLockingFocusWithCustomLensPositionSupported() const override;
  bool isFocusPointOfInterestSupported() const override;
  double minISO() const override;
  double maxISO() const override;
  double minExposureTargetBias() const override;
  double maxExposureTargetBias() const override;
  double maxZoomScale() const override;

  double batteryLevel() const override;
  int64_t batteryState() const override;

 private:
  CaptureDeviceFormatPtr activeFormat() const;  // null without a device

  const std::shared_ptr<CaptureDevice> device_;
  const std::shared_ptr<BatteryMonitor> battery_;
  std::atomic<bool> dim_{false};
};

}  // namespace oxelo
