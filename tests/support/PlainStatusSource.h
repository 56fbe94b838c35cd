#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "wire/StreamStatusSource.h"

namespace oxelo {

// The values of a StreamStatusSource as a plain record, for tests and for
// the reference host.
struct StreamStatusValues {
  bool beautyFace = false;
  int64_t beautyMethod = 0;
  bool mirror = false, dim = false;
  int64_t torch = 0;
  bool torchAvailable = true;
  int64_t aeafLock = 0, captureDevicePosition = 1;
  std::string captureDeviceType = device_type::kWideAngle;

  double exposure = 0;
  bool autoExposure = true, aeLock = false;
  int64_t exposureMode = 2;
  double whiteBalanceTemperature = 5000;
  bool autoWhiteBalance = true, awbLock = false;
  int64_t whiteBalanceMode = 2;
  double lensPosition = 0;
  bool autoFocus = true, afLock = false;
  int64_t focusMode = 2;
  double iso = 100, exposureTargetBias = 0, zoomScale = 1;

  double minExposure = 0, maxExposure = 0;
  uint32_t exposureModes = 0;      // bit n: exposure mode n is supported
  uint32_t whiteBalanceModes = 0;  // bit n: white balance mode n is supported
  bool exposurePointOfInterest = false, whiteBalanceCustomGains = false;
  bool focusCustomLensPosition = false, focusPointOfInterest = false;
  double minISO = 0, maxISO = 0, minExposureTargetBias = 0, maxExposureTargetBias = 0;
  double maxZoomScale = 1;

  double batteryLevel = 1;
  int64_t batteryState = 1;
  bool newerCameraKinds = true;
};

// A StreamStatusSource that answers from a StreamStatusValues record.
class PlainStatusSource final : public StreamStatusSource {
 public:
  explicit PlainStatusSource(StreamStatusValues values = {}) : v(std::move(values)) {}
  StreamStatusValues v;

  bool beautyFace() const override { return v.beautyFace; }
  int64_t beautyMethod() const override { return v.beautyMethod; }
  bool mirror() const override { return v.mirror; }
  bool dim() const override { return v.dim; }
  int64_t torch() const override { return v.torch; }
  bool isTorchAvailable() const override { return v.torchAvailable; }
  int64_t aeafLock() const override { return v.aeafLock; }
  int64_t captureDevicePosition() const override { return v.captureDevicePosition; }
  std::string captureDeviceType() const override { return v.captureDeviceType; }
  double exposure() const override { return v.exposure; }
  bool autoExposure() const override { return v.autoExposure; }
  bool aeLock() const override { return v.aeLock; }
  int64_t exposureMode() const override { return v.exposureMode; }
  double whiteBalanceTemperature() const override { return v.whiteBalanceTemperature; }
  bool autoWhiteBalance() const override { return v.autoWhiteBalance; }
  bool awbLock() const override { return v.awbLock; }
  int64_t whiteBalanceMode() const override { return v.whiteBalanceMode; }
  double lensPosition() const override { return v.lensPosition; }
  bool autoFocus() const override { return v.autoFocus; }
  bool afLock() const override { return v.afLock; }
  int64_t focusMode() const override { return v.focusMode; }
  double ISO() const override { return v.iso; }
  double exposureTargetBias() const override { return v.exposureTargetBias; }
  double zoomScale() const override { return v.zoomScale; }
  double minExposure() const override { return v.minExposure; }
  double maxExposure() const override { return v.maxExposure; }
  bool isExposureModeSupported(int64_t m) const override { return hasBit(v.exposureModes, m); }
  bool isExposurePointOfInterestSupported() const override { return v.exposurePointOfInterest; }
  bool isLockingWhiteBalanceWithCustomDeviceGainsSupported() const override {
    return v.whiteBalanceCustomGains;
  }
  bool isWhiteBalanceModeSupported(int64_t mode) const override {
    return hasBit(v.whiteBalanceModes, mode);
  }
  bool isLockingFocusWithCustomLensPositionSupported() const override {
    return v.focusCustomLensPosition;
  }
  bool isFocusPointOfInterestSupported() const override { return v.focusPointOfInterest; }
  double minISO() const override { return v.minISO; }
  double maxISO() const override { return v.maxISO; }
  double minExposureTargetBias() const override { return v.minExposureTargetBias; }
  double maxExposureTargetBias() const override { return v.maxExposureTargetBias; }
  double maxZoomScale() const override { return v.maxZoomScale; }
  double batteryLevel() const override { return v.batteryLevel; }
  int64_t batteryState() const override { return v.batteryState; }
  bool newerCameraKinds() const override { return v.newerCameraKinds; }

 private:
  static bool hasBit(uint32_t bits, int64_t n) { return n >= 0 && n < 32 && (bits >> n & 1) != 0; }
};

}  // namespace oxelo
