#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/camera/CaptureDeviceDriver.h"
#include "platform/camera/CaptureDeviceFormat.h"
#include "platform/camera/CaptureDeviceState.h"
#include "platform/camera/CaptureTypes.h"
#include "platform/dispatch/Observable.h"

namespace oxelo {

// One camera: identity, formats, the active format and frame timing, and the
// focus, exposure, white balance, zoom and torch state with the questions of
// what the camera supports. A backend (CameraSystem) builds it from a
// description and a driver that carries each change to the hardware.
//
// Safe for use from any thread: the controls run on the main queue, the
// status block reads the getters from the send queue. Every change needs the
// configuration lock: lockForConfiguration() before, unlockForConfiguration()
// after. The lock counts, so nested lock and unlock pairs are fine. A setter
// returns false, and changes nothing, when the lock is not held, the camera
// lacks the feature or the value is out of range; it never throws.
//
// Frame delivery: startStreaming() sends pictures of the active format at
// the active minimum frame duration into a sink, on the backend's delivery
// thread (see CameraFrameSink). A change of the active format or frame
// timing while streaming restarts the stream in the new one; when the new
// one cannot start, the sink's cameraStreamDidEnd() is told on the thread
// that made the change. The streaming calls may come from any thread, but
// not from the sink's own calls.
class CaptureDevice {
 public:
  CaptureDevice(CaptureDeviceDescription description, std::unique_ptr<CaptureDeviceDriver> driver);
  ~CaptureDevice();
  CaptureDevice(const CaptureDevice&) = delete;
  CaptureDevice& operator=(const CaptureDevice&) = delete;

  // Identity.
  const std::string& uniqueID() const { return uniqueID_; }
  const std::string& localizedName() const { return localizedName_; }
  const std::string& deviceType() const { return deviceType_; }
  AVCaptureDevicePosition position() const { return position_; }
  const std::string& location() const { return location_; }  // "/dev/video0", "virtual"
  const CameraMounting& mounting() const { return mounting_; }
  bool hasMediaType(const std::string& mediaType) const { return mediaType == AVMediaTypeVideo; }
  // A camera made of several lenses (dual, dual wide, triple).
  bool isVirtualDevice() const { return !capabilities_.constituentDeviceTypes.empty(); }
  const std::vector<std::string>& constituentDeviceTypes() const {
    return capabilities_.constituentDeviceTypes;
  }
  const std::vector<double>& virtualDeviceSwitchOverVideoZoomFactors() const {
    return capabilities_.virtualDeviceSwitchOverVideoZoomFactors;
  }
  const CaptureDeviceCapabilities& capabilities() const { return capabilities_; }

  // Formats, in the device's order: ascending size, "420v" before "420f".
  const std::vector<CaptureDeviceFormatPtr>& formats() const { return formats_; }
  // A sized preset is supported when a format has exactly its size;
  // AVCaptureSessionPresetHigh when there is any format.
  bool supportsAVCaptureSessionPreset(const std::string& preset) const;
  // The format a capture session takes for a preset: the first "420f"
  // format of the preset's size (else the first of any subtype); for High the
  // 1920x1080 one, else the largest. None when the preset is not supported.
  CaptureDeviceFormatPtr formatForSessionPreset(const std::string& preset) const;

  CaptureDeviceFormatPtr activeFormat() const;
  // `format` must be one of formats(). Returns the frame timing to the
  // format's own, and brings zoom, exposure time and ISO into its limits.
  bool setActiveFormat(const CaptureDeviceFormatPtr& format);
  // The shortest and longest frame durations in use: a set value, else the
  // format's own timing (1/30 s where a range holds 30, else its fastest).
  CaptureTime activeVideoMinFrameDuration() const;
  CaptureTime activeVideoMaxFrameDuration() const;
  // A valid time must lie in one of the active format's ranges; the invalid
  // time returns the timing to the format's own.
  bool setActiveVideoMinFrameDuration(CaptureTime duration);
  bool setActiveVideoMaxFrameDuration(CaptureTime duration);

  // Configuration lock. False, with the reason in `error` if given, when the
  // device cannot be had for configuration.
  bool lockForConfiguration(std::string* error = nullptr);
  void unlockForConfiguration();
  bool isLockedForConfiguration() const;

  // Modes by their numbers (0 locked, 1 one-time automatic, 2 continuous,
  // exposure 3 custom). A one-time mode settles into locked by itself when
  // the camera is done, as the driver reports it.

  // Focus.
  bool isFocusModeSupported(int64_t mode) const;
  int64_t focusMode() const;
  bool setFocusMode(int64_t mode);
  bool isFocusPointOfInterestSupported() const { return capabilities_.focusPointOfInterest; }
  CapturePoint focusPointOfInterest() const;
  bool setFocusPointOfInterest(CapturePoint point);  // 0 to 1 on each axis
  bool isLockingFocusWithCustomLensPositionSupported() const {
    return capabilities_.lockingFocusWithCustomLensPosition;
  }
  float lensPosition() const;
  // Locks the focus (mode 0) at a lens position from 0.0 to 1.0.
  bool setFocusModeLockedWithLensPosition(float lensPosition);
  bool isSmoothAutoFocusSupported() const { return capabilities_.smoothAutoFocus; }
  bool isSmoothAutoFocusEnabled() const;
  bool setSmoothAutoFocusEnabled(bool enabled);
  bool automaticallyAdjustsFaceDrivenAutoFocusEnabled() const;
  bool setAutomaticallyAdjustsFaceDrivenAutoFocusEnabled(bool enabled);

  // Exposure.
  bool isExposureModeSupported(int64_t mode) const;
  int64_t exposureMode() const;
  bool setExposureMode(int64_t mode);
  bool isExposurePointOfInterestSupported() const { return capabilities_.exposurePointOfInterest; }
  CapturePoint exposurePointOfInterest() const;
  bool setExposurePointOfInterest(CapturePoint point);
  CaptureTime exposureDuration() const;
  float ISO() const;
  // The longest exposure in the active format.
  CaptureTime activeMaxExposureDuration() const;
  // Custom mode (3) with a duration from the format's minimum to
  // activeMaxExposureDuration() and an ISO within the format's limits;
  // AVCaptureExposureDurationCurrent and AVCaptureISOCurrent keep the
  // present values.
  bool setExposureModeCustomWithDurationISO(CaptureTime duration, float iso);
  float exposureTargetBias() const;
  float minExposureTargetBias() const { return capabilities_.minExposureTargetBias; }
  float maxExposureTargetBias() const { return capabilities_.maxExposureTargetBias; }
  bool setExposureTargetBias(float bias);  // within the two limits
  bool automaticallyAdjustsFaceDrivenAutoExposureEnabled() const;
  bool setAutomaticallyAdjustsFaceDrivenAutoExposureEnabled(bool enabled);

  // White balance.
  bool isWhiteBalanceModeSupported(int64_t mode) const;
  int64_t whiteBalanceMode() const;
  bool setWhiteBalanceMode(int64_t mode);
  bool isLockingWhiteBalanceWithCustomDeviceGainsSupported() const {
    return capabilities_.lockingWhiteBalanceWithCustomDeviceGains;
  }
  float maxWhiteBalanceGain() const { return capabilities_.maxWhiteBalanceGain; }
  AVCaptureWhiteBalanceGains deviceWhiteBalanceGains() const;
  // Locks the white balance (mode 0) at gains from 1.0 to maxWhiteBalanceGain().
  bool setWhiteBalanceModeLockedWithDeviceWhiteBalanceGains(AVCaptureWhiteBalanceGains gains);
  AVCaptureWhiteBalanceGains deviceWhiteBalanceGainsForTemperatureAndTintValues(
      AVCaptureWhiteBalanceTemperatureAndTintValues values) const;
  AVCaptureWhiteBalanceTemperatureAndTintValues temperatureAndTintValuesForDeviceWhiteBalanceGains(
      AVCaptureWhiteBalanceGains gains) const;

  // Zoom, from 1.0 to the active format's videoMaxZoomFactor.
  double videoZoomFactor() const;
  bool setVideoZoomFactor(double factor);
  // Moves to `factor` at `rate` (doublings per second); the picture follows
  // over the next frames, the model holds the target at once.
  bool rampToVideoZoomFactorWithRate(double factor, float rate);
  // The rate of the last zoom change; 0 when it was set directly.
  float videoZoomRampRate() const;

  // Torch.
  bool hasTorch() const { return capabilities_.torch; }
  bool isTorchAvailable() const { return capabilities_.torch; }
  bool isTorchModeSupported(int64_t mode) const;
  int64_t torchMode() const;
  float torchLevel() const;  // 0 when off
  bool setTorchMode(int64_t mode);
  // On at a level above 0 and up to 1. False, with the reason in `error`.
  bool setTorchModeOnWithLevel(float level, std::string* error = nullptr);

  // Subject-area change: observers run on the thread that reports the
  // change, only while monitoring is enabled.
  bool isSubjectAreaChangeMonitoringEnabled() const;
  bool setSubjectAreaChangeMonitoringEnabled(bool enabled);
  [[nodiscard]] Subscription observeSubjectAreaDidChange(std::function<void()> observer);
  // The monitoring switched on or off (the new value), on the setter's
  // thread, after the change took effect.
  [[nodiscard]] Subscription observeSubjectAreaChangeMonitoring(std::function<void(bool)> observer);
  // The backend (or a test) reports that the scene moved on.
  void subjectAreaDidChange();

  // Low-light boost, video HDR.
  bool isLowLightBoostSupported() const { return capabilities_.lowLightBoost; }
  bool automaticallyEnablesLowLightBoostWhenAvailable() const;
  bool setAutomaticallyEnablesLowLightBoostWhenAvailable(bool enabled);
  bool automaticallyAdjustsVideoHDREnabled() const;
  bool setAutomaticallyAdjustsVideoHDREnabled(bool enabled);
  bool isVideoHDREnabled() const;
  // Needs an active format with HDR and automatic adjustment off.
  bool setVideoHDREnabled(bool enabled);

  // A copy of the whole state (listings, tests).
  CaptureDeviceState state() const;

  // Streams the active format into `sink` until stopStreaming(). An error,
  // and no stream, when the camera cannot be had (in use, no permission) or
  // is already streaming.
  CameraError startStreaming(std::weak_ptr<CameraFrameSink> sink);
  // Ends the stream; no sink call comes after it returns. Also needed after
  // the stream ended by itself, to free what it held.
  void stopStreaming();
  // From a successful start until stopStreaming(), also when the stream has
  // ended by itself meanwhile (the sink was told).
  bool isStreaming() const;

 private:
  // Hands `wanted` to the driver and keeps it if the driver agrees; the
  // caller holds mutex_ and has checked the lock.
  bool commit(CaptureDeviceState wanted, DeviceSetting setting);
  bool lockedLocked() const { return lockCount_ > 0; }
  CaptureTime defaultFrameDuration() const;
  bool durationInActiveRanges(CaptureTime duration) const;
  // After a change of format or timing: a running stream takes the new one.
  // Called without mutex_.
  void restartStreaming();
  CameraError startStreamingLocked();  // streamMutex_ held

  const std::string uniqueID_;
  const std::string localizedName_;
  const std::string deviceType_;
  const AVCaptureDevicePosition position_;
  const std::string location_;
  const CameraMounting mounting_;
  const CaptureDeviceCapabilities capabilities_;
  std::vector<CaptureDeviceFormatPtr> formats_;

  mutable std::mutex mutex_;
  mutable CaptureDeviceState state_;  // refreshed from the driver on reads
  int lockCount_ = 0;
  std::unique_ptr<CaptureDeviceDriver> driver_;

  // Orders the streaming calls; taken before mutex_, never inside it.
  mutable std::mutex streamMutex_;
  bool streaming_ = false;               // streamMutex_
  std::weak_ptr<CameraFrameSink> sink_;  // streamMutex_
  std::atomic<uint64_t> subjectAreaChangeCount_{0};
  Observable<uint64_t> subjectAreaChanges_;
  Observers<bool> monitoringChanges_;
};

}  // namespace oxelo
