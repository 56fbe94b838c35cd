#pragma once

#include <cstdint>
#include <string>

// The vocabulary of the capture-device model: device type and media texts,
// positions, the numbered modes of focus, exposure, white balance and torch,
// times with a time scale, points and white-balance gains. The texts and the
// numbers are those the settings store and the wire format keep, so they are
// compared as they stand.
namespace oxelo {

// Device types. The setting `deviceType` stores one of these texts.
inline constexpr const char* AVCaptureDeviceTypeBuiltInWideAngleCamera =
    "AVCaptureDeviceTypeBuiltInWideAngleCamera";
inline constexpr const char* AVCaptureDeviceTypeBuiltInTelephotoCamera =
    "AVCaptureDeviceTypeBuiltInTelephotoCamera";
inline constexpr const char* AVCaptureDeviceTypeBuiltInUltraWideCamera =
    "AVCaptureDeviceTypeBuiltInUltraWideCamera";
inline constexpr const char* AVCaptureDeviceTypeBuiltInDualCamera =
    "AVCaptureDeviceTypeBuiltInDualCamera";
inline constexpr const char* AVCaptureDeviceTypeBuiltInDualWideCamera =
    "AVCaptureDeviceTypeBuiltInDualWideCamera";
inline constexpr const char* AVCaptureDeviceTypeBuiltInTripleCamera =
    "AVCaptureDeviceTypeBuiltInTripleCamera";

// True for the six texts above.
bool isKnownDeviceType(const std::string& type);

// Media type of every camera and the two bi-planar 4:2:0 subtypes.
inline constexpr const char* AVMediaTypeVideo = "vide";
inline constexpr const char* kPixelFormat420FullRange = "420f";   // full range
inline constexpr const char* kPixelFormat420VideoRange = "420v";  // video range

// Capture presets, the sizes a capture session is asked for.
inline constexpr const char* AVCaptureSessionPreset640x480 = "AVCaptureSessionPreset640x480";
inline constexpr const char* AVCaptureSessionPresetiFrame960x540 =
    "AVCaptureSessionPresetiFrame960x540";
inline constexpr const char* AVCaptureSessionPreset1280x720 = "AVCaptureSessionPreset1280x720";
inline constexpr const char* AVCaptureSessionPreset1920x1080 = "AVCaptureSessionPreset1920x1080";
inline constexpr const char* AVCaptureSessionPreset3840x2160 = "AVCaptureSessionPreset3840x2160";
inline constexpr const char* AVCaptureSessionPresetHigh = "AVCaptureSessionPresetHigh";

// The exact frame size a sized preset stands for; false for presets without
// one (High) and unknown texts.
bool dimensionsOfSessionPreset(const std::string& preset, int32_t& width, int32_t& height);

enum AVCaptureDevicePosition : int64_t {
  AVCaptureDevicePositionUnspecified = 0,
  AVCaptureDevicePositionBack = 1,
  AVCaptureDevicePositionFront = 2,
};

enum AVCaptureFocusMode : int64_t {
  AVCaptureFocusModeLocked = 0,
  AVCaptureFocusModeAutoFocus = 1,
  AVCaptureFocusModeContinuousAutoFocus = 2,
};

enum AVCaptureExposureMode : int64_t {
  AVCaptureExposureModeLocked = 0,
  AVCaptureExposureModeAutoExpose = 1,
  AVCaptureExposureModeContinuousAutoExposure = 2,
  AVCaptureExposureModeCustom = 3,
};

enum AVCaptureWhiteBalanceMode : int64_t {
  AVCaptureWhiteBalanceModeLocked = 0,
  AVCaptureWhiteBalanceModeAutoWhiteBalance = 1,
  AVCaptureWhiteBalanceModeContinuousAutoWhiteBalance = 2,
};

enum AVCaptureTorchMode : int64_t {
  AVCaptureTorchModeOff = 0,
  AVCaptureTorchModeOn = 1,
  AVCaptureTorchModeAuto = 2,
};

// A rational time: value / timescale seconds. A time scale of 0 marks the
// invalid time, which the frame-duration setters take as "the device's own
// timing" and the custom exposure as "keep the present duration".
struct CaptureTime {
  int64_t value = 0;
  int32_t timescale = 0;

  static constexpr CaptureTime make(int64_t value, int32_t timescale) { return {value, timescale}; }
  // Seconds at the given time scale, rounded to the nearest step.
  static CaptureTime withSeconds(double seconds, int32_t timescale);
  static constexpr CaptureTime invalid() { return {}; }

  constexpr bool isValid() const { return timescale > 0; }
  double seconds() const { return isValid() ? static_cast<double>(value) / timescale : 0.0; }

  // Compares valid times exactly; an invalid time is below every valid one.
  friend int compare(const CaptureTime& a, const CaptureTime& b);
  friend bool operator==(const CaptureTime& a, const CaptureTime& b) { return compare(a, b) == 0; }
  friend bool operator<(const CaptureTime& a, const CaptureTime& b) { return compare(a, b) < 0; }
  friend bool operator>(const CaptureTime& a, const CaptureTime& b) { return compare(a, b) > 0; }
  friend bool operator<=(const CaptureTime& a, const CaptureTime& b) { return compare(a, b) <= 0; }
  friend bool operator>=(const CaptureTime& a, const CaptureTime& b) { return compare(a, b) >= 0; }
};

// Arguments of the custom exposure that keep the present value.
inline constexpr CaptureTime AVCaptureExposureDurationCurrent = CaptureTime::invalid();
inline constexpr float AVCaptureISOCurrent = 0.0f;

// A point of interest in the device's coordinates, 0 to 1 on each axis.
struct CapturePoint {
  double x = 0.5;
  double y = 0.5;
  friend bool operator==(const CapturePoint&, const CapturePoint&) = default;
};

// Multipliers of the three colour channels; 1.0 is the lowest.
struct AVCaptureWhiteBalanceGains {
  float redGain = 1.0f;
  float greenGain = 1.0f;
  float blueGain = 1.0f;
  friend bool operator==(const AVCaptureWhiteBalanceGains&,
                         const AVCaptureWhiteBalanceGains&) = default;
};

struct AVCaptureWhiteBalanceTemperatureAndTintValues {
  float temperature = 0.0f;  // kelvin
  float tint = 0.0f;
};

}  // namespace oxelo
