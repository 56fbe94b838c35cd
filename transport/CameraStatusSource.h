#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "capture/LFVideoCapture.h"
#include "platform/camera/CaptureDevice.h"
#include "platform/device/Battery.h"
#include "wire/StreamStatusSource.h"

namespace oxelo {

// The session's lock value (OXLiveSession::aeafLock) read from a capture
// front: 2 when exposure and focus are locked; else 1 when neither is
// automatic and the device does not watch for a change of the subject area;
// else 0. Any thread.
int64_t aeafLockOf(const LFVideoCapture& capture);

// The values of the tail blocks: the capture front it follows answers for
// the camera controls, the torch, the locks and the ranges, as its getters
// read them at that moment (so that a command shows in the next block), its
// camera for the features and the camera kind, the session's own flags
// (dim, mirror, beauty) for the rest, and the battery monitor for the
// battery. Before it follows a capture front (or once that is gone) the
// device it was made with answers, the torch and the locks reading as off.
//
// The flags are written on the main queue and read on rtmpSendQueue as
// single atomic values; the capture front and the device answer from any
// thread.
class CameraStatusSource final : public StreamStatusSource {
 public:
  // `device` may be null (no camera): the ranges then read as 0.
  CameraStatusSource(std::shared_ptr<CaptureDevice> device,
                     std::shared_ptr<BatteryMonitor> battery);

  // The camera the settings choose: the front wide-angle camera when
  // `frontCam` is set, else the back wide-angle one; any camera at that
  // position, else the first camera, when there is no such one.
  static std::shared_ptr<CaptureDevice> deviceFromSettings();

  // From now on the camera in use is `capture`'s. Main queue.
  void followCapture(std::weak_ptr<LFVideoCapture> capture);
  // The camera the values come from now; null without one.
  std::shared_ptr<CaptureDevice> device() const;

  void setDim(bool dim) { dim_ = dim; }
  void setMirror(bool mirror) { mirror_ = mirror; }
  void setBeauty(bool beautyFace, int64_t beautyMethod) {
    beautyFace_ = beautyFace;
    beautyMethod_ = beautyMethod;
  }

  bool beautyFace() const override { return beautyFace_; }
  int64_t beautyMethod() const override { return beautyMethod_; }
  bool mirror() const override { return mirror_; }
  bool dim() const override { return dim_; }
  int64_t torch() const override;
  bool isTorchAvailable() const override;
  int64_t aeafLock() const override;
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
  // The capture front followed, while it lives; null before and after.
  std::shared_ptr<LFVideoCapture> capture() const;

  const std::shared_ptr<CaptureDevice> device_;
  const std::shared_ptr<BatteryMonitor> battery_;
  mutable std::mutex captureMutex_;
  std::weak_ptr<LFVideoCapture> capture_;  // guarded by captureMutex_
  bool following_ = false;                 // guarded by captureMutex_
  std::atomic<bool> dim_{false};
  std::atomic<bool> mirror_{false};
  std::atomic<bool> beautyFace_{false};
  std::atomic<int64_t> beautyMethod_{0};
};

}  // namespace oxelo
