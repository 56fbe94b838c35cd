#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/camera/CaptureDeviceFormat.h"
#include "platform/camera/CaptureTypes.h"

namespace oxelo {

// What a camera can do beyond its formats. Mode sets hold one bit per mode
// number (bit 2 = mode 2).
struct CaptureDeviceCapabilities {
  uint32_t focusModes = 0;
  uint32_t exposureModes = 0;
  uint32_t whiteBalanceModes = 0;
  bool focusPointOfInterest = false;
  bool exposurePointOfInterest = false;
  bool lockingFocusWithCustomLensPosition = false;
  bool lockingWhiteBalanceWithCustomDeviceGains = false;
  float maxWhiteBalanceGain = 1.0f;
  float minExposureTargetBias = 0.0f;
  float maxExposureTargetBias = 0.0f;
  bool torch = false;  // hasTorch
  bool lowLightBoost = false;
  bool smoothAutoFocus = false;
  bool subjectAreaChangeMonitoring = false;
  // A camera made of several lenses lists their types, widest first, and the
  // zoom factors at which it changes from one to the next.
  std::vector<std::string> constituentDeviceTypes;
  std::vector<double> virtualDeviceSwitchOverVideoZoomFactors;

  static constexpr uint32_t modeBit(int64_t mode) {
    return mode >= 0 && mode < 32 ? 1u << mode : 0u;
  }
  static constexpr bool has(uint32_t set, int64_t mode) { return (set & modeBit(mode)) != 0; }
};

// The adjustable state of a camera. The device model keeps it and hands the
// wanted state to its driver on each change.
struct CaptureDeviceState {
  CaptureDeviceFormatPtr activeFormat;
  // Invalid: the active format's own timing.
  CaptureTime activeVideoMinFrameDuration;
  CaptureTime activeVideoMaxFrameDuration;

  int64_t focusMode = AVCaptureFocusModeLocked;
  CapturePoint focusPointOfInterest;
  float lensPosition = 0.5f;
  bool smoothAutoFocusEnabled = false;
  bool faceDrivenAutoFocusEnabled = true;

  int64_t exposureMode = AVCaptureExposureModeLocked;
  CapturePoint exposurePointOfInterest;
  // 1/60 s on a nanosecond time scale, as a phone camera counts: a custom
  // duration is made on the present one's scale.
  CaptureTime exposureDuration = CaptureTime::make(16666667, 1000000000);
  float ISO = 100.0f;
  float exposureTargetBias = 0.0f;
  bool faceDrivenAutoExposureEnabled = true;

  int64_t whiteBalanceMode = AVCaptureWhiteBalanceModeLocked;
  AVCaptureWhiteBalanceGains whiteBalanceGains;

  double videoZoomFactor = 1.0;
  float videoZoomRampRate = 0.0f;  // of the last change; 0 when it was set directly

  int64_t torchMode = AVCaptureTorchModeOff;
  float torchLevel = 0.0f;

  bool subjectAreaChangeMonitoringEnabled = false;
  bool automaticallyEnablesLowLightBoostWhenAvailable = false;
  bool automaticallyAdjustsVideoHDREnabled = true;
  bool videoHDREnabled = false;
};

// The setting a change touches, so that a driver writes only that.
enum class DeviceSetting {
  activeFormat,
  frameDuration,
  focusMode,
  focusPointOfInterest,
  lensPosition,  // focus locked at a lens position
  smoothAutoFocus,
  faceDrivenAutoFocus,
  exposureMode,
  exposurePointOfInterest,
  customExposure,  // exposure duration and ISO in custom mode
  exposureTargetBias,
  faceDrivenAutoExposure,
  whiteBalanceMode,
  whiteBalanceGains,  // white balance locked at gains
  videoZoomFactor,
  torch,
  subjectAreaChangeMonitoring,
  lowLightBoost,
  videoHDR,
};

// Which way a camera looks: out of the back or the front of the device, or
// from outside it (a USB webcam).
enum class CameraFacing : uint8_t { back, front, external };

// How a camera is mounted. `sensorRotation` is the rotation in degrees
// counter-clockwise (0, 90, 180 or 270) that turns the sensor's picture
// upright on the device held in its natural orientation, as V4L2 states it.
// The phone cameras the rotation table was written for have 270 (their
// pictures need a quarter turn to the right in portrait); an external
// camera has 0.
struct CameraMounting {
  CameraFacing facing = CameraFacing::external;
  int32_t sensorRotation = 0;
  friend bool operator==(const CameraMounting&, const CameraMounting&) = default;
};

// Everything a backend says about one camera when it builds the model.
struct CaptureDeviceDescription {
  std::string uniqueID;
  std::string localizedName;
  std::string deviceType = AVCaptureDeviceTypeBuiltInWideAngleCamera;
  AVCaptureDevicePosition position = AVCaptureDevicePositionBack;
  std::string location;  // "/dev/video0"; "virtual" for a simulated camera
  CameraMounting mounting;
  std::vector<CaptureDeviceFormat> formats;
  CaptureDeviceCapabilities capabilities;
  // The first active format, an index into `formats`; none: the model picks.
  std::optional<size_t> activeFormatIndex;
};

}  // namespace oxelo
