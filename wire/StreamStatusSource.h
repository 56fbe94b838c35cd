#pragma once

#include <cstdint>
#include <string>

namespace oxelo {

// The names of the camera types that the tail blocks tell apart, as the
// capture side reports them in `captureDeviceType`.
namespace device_type {
inline constexpr const char* kWideAngle = "AVCaptureDeviceTypeBuiltInWideAngleCamera";
inline constexpr const char* kUltraWide = "AVCaptureDeviceTypeBuiltInUltraWideCamera";
inline constexpr const char* kTelephoto = "AVCaptureDeviceTypeBuiltInTelephotoCamera";
inline constexpr const char* kDual = "AVCaptureDeviceTypeBuiltInDualCamera";
inline constexpr const char* kDualWide = "AVCaptureDeviceTypeBuiltInDualWideCamera";
inline constexpr const char* kTriple = "AVCaptureDeviceTypeBuiltInTripleCamera";
}  // namespace device_type

// Everything the status and capability blocks tell the host, read at the
// moment the block is laid out on rtmpSendQueue. The live session and its
// capture front implement it; every getter must be safe to call from the
// send queue (single values read without a lock, as the flags of the
// session are). Values are the real ones; the blocks scale them.
class StreamStatusSource {
 public:
  virtual ~StreamStatusSource() = default;

  // Session.
  virtual bool beautyFace() const = 0;
  virtual int64_t beautyMethod() const = 0;
  virtual bool mirror() const = 0;
  virtual bool dim() const = 0;
  virtual int64_t torch() const = 0;                  // level 0 to 5
  virtual bool isTorchAvailable() const = 0;          // of the active camera
  virtual int64_t aeafLock() const = 0;               // 0 none, 1 and 2 the lock states
  virtual int64_t captureDevicePosition() const = 0;  // 1 back, 2 front
  virtual std::string captureDeviceType() const = 0;  // a device_type name, or other

  // Camera controls of the capture front.
  virtual double exposure() const = 0;  // seconds
  virtual bool autoExposure() const = 0;
  virtual bool aeLock() const = 0;
  virtual int64_t exposureMode() const = 0;            // the device's mode; 3 is custom
  virtual double whiteBalanceTemperature() const = 0;  // kelvin, of wbTempAndTint
  virtual bool autoWhiteBalance() const = 0;
  virtual bool awbLock() const = 0;
  virtual int64_t whiteBalanceMode() const = 0;
  virtual double lensPosition() const = 0;  // 0.0 to 1.0
  virtual bool autoFocus() const = 0;
  virtual bool afLock() const = 0;
  virtual int64_t focusMode() const = 0;
  virtual double ISO() const = 0;
  virtual double exposureTargetBias() const = 0;
  virtual double zoomScale() const = 0;

  // Ranges and features of the active camera.
  virtual double minExposure() const = 0;  // seconds
  virtual double maxExposure() const = 0;
  virtual bool isExposureModeSupported(int64_t mode) const = 0;
  virtual bool isExposurePointOfInterestSupported() const = 0;
  virtual bool isLockingWhiteBalanceWithCustomDeviceGainsSupported() const = 0;
  virtual bool isWhiteBalanceModeSupported(int64_t mode) const = 0;
  virtual bool isLockingFocusWithCustomLensPositionSupported() const = 0;
  virtual bool isFocusPointOfInterestSupported() const = 0;
  virtual double minISO() const = 0;
  virtual double maxISO() const = 0;
  virtual double minExposureTargetBias() const = 0;
  virtual double maxExposureTargetBias() const = 0;
  virtual double maxZoomScale() const = 0;

  // Device.
  virtual double batteryLevel() const = 0;   // 0.0 to 1.0
  virtual int64_t batteryState() const = 0;  // 2 is charging
  // Whether the camera kinds of the newer platform apply. This program
  // always answers true; the older numbering is kept for the host's sake.
  virtual bool newerCameraKinds() const { return true; }
};

}  // namespace oxelo
