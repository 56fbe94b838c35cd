#include "platform/camera/CaptureDevice.h"

#include <algorithm>
#include <cmath>

#include "platform/camera/WhiteBalanceModel.h"

namespace oxelo {

namespace {

bool inUnitSquare(CapturePoint p) { return p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1; }

// The best automatic mode a mode set offers: continuous, else one-time, else
// the locked mode.
int64_t bestAutomaticMode(uint32_t modes) {
  if (CaptureDeviceCapabilities::has(modes, 2)) return 2;
  if (CaptureDeviceCapabilities::has(modes, 1)) return 1;
  return 0;
}

CaptureTime clampTime(CaptureTime t, CaptureTime low, CaptureTime high) {
  if (low.isValid() && t < low) return low;
  if (high.isValid() && t > high) return high;
  return t;
}

// The format a device starts with: 1920x1080 "420f" where there is one,
// else the largest "420f", else the first.
size_t initialFormatIndex(const std::vector<CaptureDeviceFormatPtr>& formats) {
  size_t best = 0;
  bool found = false;
  for (size_t i = 0; i < formats.size(); ++i) {
    const auto& f = *formats[i];
    if (f.mediaSubType != kPixelFormat420FullRange) continue;
    if (f.width == 1920 && f.height == 1080) return i;
    if (!found ||
        int64_t{f.width} * f.height > int64_t{formats[best]->width} * formats[best]->height) {
      best = i;
      found = true;
    }
  }
  return best;
}

}  // namespace

CaptureDevice::CaptureDevice(CaptureDeviceDescription description,
                             std::unique_ptr<CaptureDeviceDriver> driver)
    : uniqueID_(std::move(description.uniqueID)),
      localizedName_(std::move(description.localizedName)),
      deviceType_(std::move(description.deviceType)),
      position_(description.position),
      location_(std::move(description.location)),
      mounting_(description.mounting),
      capabilities_(std::move(description.capabilities)),
      driver_(std::move(driver)) {
  for (auto& f : description.formats) {
    formats_.push_back(std::make_shared<const CaptureDeviceFormat>(std::move(f)));
  }
  if (!formats_.empty()) {
    size_t index = description.activeFormatIndex.value_or(initialFormatIndex(formats_));
    state_.activeFormat = formats_[std::min(index, formats_.size() - 1)];
  }
  state_.focusMode = bestAutomaticMode(capabilities_.focusModes);
  state_.exposureMode = bestAutomaticMode(capabilities_.exposureModes);
  state_.whiteBalanceMode = bestAutomaticMode(capabilities_.whiteBalanceModes);
  state_.whiteBalanceGains = whiteBalanceGainsForTemperatureAndTint({5000.0f, 0.0f});
  if (state_.activeFormat) {
    const auto& f = *state_.activeFormat;
    state_.exposureDuration =
        clampTime(state_.exposureDuration, f.minExposureDuration, f.maxExposureDuration);
    if (f.maxISO > 0) state_.ISO = std::clamp(state_.ISO, f.minISO, f.maxISO);
  }
  state_.faceDrivenAutoFocusEnabled = CaptureDeviceCapabilities::has(capabilities_.focusModes, 1);
  state_.faceDrivenAutoExposureEnabled =
      CaptureDeviceCapabilities::has(capabilities_.exposureModes, 1);
  driver_->load(state_);
}

CaptureDevice::~CaptureDevice() { stopStreaming(); }

CameraError CaptureDevice::startStreaming(std::weak_ptr<CameraFrameSink> sink) {
  std::lock_guard streamLock(streamMutex_);
  if (streaming_)
    return {CameraErrorCode::failed, "the camera " + location_ + " is already streaming"};
  sink_ = std::move(sink);
  return startStreamingLocked();
}

CameraError CaptureDevice::startStreamingLocked() {
  CaptureDeviceFormatPtr format;
  CaptureTime duration;
  {
    std::lock_guard lock(mutex_);
    format = state_.activeFormat;
    duration = state_.activeVideoMinFrameDuration.isValid() ? state_.activeVideoMinFrameDuration
                                                            : defaultFrameDuration();
  }
  if (!format) return {CameraErrorCode::unsupported, "the camera " + location_ + " has no format"};
  auto error = driver_->startStreaming(*format, duration, sink_);
  streaming_ = !error;
  return error;
}

void CaptureDevice::stopStreaming() {
  std::lock_guard streamLock(streamMutex_);
  if (!streaming_) return;
  driver_->stopStreaming();
  streaming_ = false;
}

bool CaptureDevice::isStreaming() const {
  std::lock_guard streamLock(streamMutex_);
  return streaming_;
}

void CaptureDevice::restartStreaming() {
  std::lock_guard streamLock(streamMutex_);
  if (!streaming_) return;
  driver_->stopStreaming();
  if (auto error = startStreamingLocked()) {
    if (auto sink = sink_.lock()) sink->cameraStreamDidEnd(error);
  }
}

bool CaptureDevice::supportsAVCaptureSessionPreset(const std::string& preset) const {
  return formatForSessionPreset(preset) != nullptr;
}

CaptureDeviceFormatPtr CaptureDevice::formatForSessionPreset(const std::string& preset) const {
  int32_t width = 0, height = 0;
  if (preset == AVCaptureSessionPresetHigh) {
    CaptureDeviceFormatPtr largest;
    for (const auto& f : formats_) {
      if (f->width == 1920 && f->height == 1080 && f->mediaSubType == kPixelFormat420FullRange)
        return f;
      if (!largest || int64_t{f->width} * f->height > int64_t{largest->width} * largest->height)
        largest = f;
    }
    return largest;
  }
  if (!dimensionsOfSessionPreset(preset, width, height)) return nullptr;
  CaptureDeviceFormatPtr any;
  for (const auto& f : formats_) {
    if (f->width != width || f->height != height) continue;
    if (f->mediaSubType == kPixelFormat420FullRange) return f;
    if (!any) any = f;
  }
  return any;
}

CaptureDeviceFormatPtr CaptureDevice::activeFormat() const {
  std::lock_guard lock(mutex_);
  return state_.activeFormat;
}

bool CaptureDevice::setActiveFormat(const CaptureDeviceFormatPtr& format) {
  bool changed = false;
  {
    std::lock_guard lock(mutex_);
    if (!lockedLocked() || !format) return false;
    if (std::find(formats_.begin(), formats_.end(), format) == formats_.end()) return false;
    CaptureDeviceState wanted = state_;
    wanted.activeFormat = format;
    wanted.activeVideoMinFrameDuration = CaptureTime::invalid();
    wanted.activeVideoMaxFrameDuration = CaptureTime::invalid();
    wanted.videoZoomFactor =
        std::clamp(wanted.videoZoomFactor, 1.0, std::max(1.0, format->videoMaxZoomFactor));
    wanted.exposureDuration = clampTime(wanted.exposureDuration, format->minExposureDuration,
                                        format->maxExposureDuration);
    if (format->maxISO > 0) wanted.ISO = std::clamp(wanted.ISO, format->minISO, format->maxISO);
    if (!format->videoHDRSupported) wanted.videoHDREnabled = false;
    CaptureTime before = state_.activeVideoMinFrameDuration;
    changed = state_.activeFormat != format || before.isValid();
    if (!commit(std::move(wanted), DeviceSetting::activeFormat)) return false;
  }
  if (changed) restartStreaming();
  return true;
}

CaptureTime CaptureDevice::defaultFrameDuration() const {
  const auto& format = state_.activeFormat;
  if (!format) return CaptureTime::invalid();
  const AVFrameRateRange* fastest = nullptr;
  for (const auto& r : format->videoSupportedFrameRateRanges) {
    if (r.containsRate(30)) return CaptureTime::make(1, 30);
    if (!fastest || r.maxFrameRate > fastest->maxFrameRate) fastest = &r;
  }
  return fastest ? fastest->minFrameDuration : CaptureTime::invalid();
}

bool CaptureDevice::durationInActiveRanges(CaptureTime duration) const {
  if (!state_.activeFormat) return false;
  for (const auto& r : state_.activeFormat->videoSupportedFrameRateRanges) {
    if (duration >= r.minFrameDuration && duration <= r.maxFrameDuration) return true;
  }
  return false;
}

CaptureTime CaptureDevice::activeVideoMinFrameDuration() const {
  std::lock_guard lock(mutex_);
  return state_.activeVideoMinFrameDuration.isValid() ? state_.activeVideoMinFrameDuration
                                                      : defaultFrameDuration();
}

CaptureTime CaptureDevice::activeVideoMaxFrameDuration() const {
  std::lock_guard lock(mutex_);
  return state_.activeVideoMaxFrameDuration.isValid() ? state_.activeVideoMaxFrameDuration
                                                      : defaultFrameDuration();
}

bool CaptureDevice::setActiveVideoMinFrameDuration(CaptureTime duration) {
  bool changed = false;
  {
    std::lock_guard lock(mutex_);
    if (!lockedLocked()) return false;
    if (duration.isValid() && !durationInActiveRanges(duration)) return false;
    CaptureTime before = state_.activeVideoMinFrameDuration.isValid()
                             ? state_.activeVideoMinFrameDuration
                             : defaultFrameDuration();
    CaptureDeviceState wanted = state_;
    wanted.activeVideoMinFrameDuration = duration;
    if (!commit(std::move(wanted), DeviceSetting::frameDuration)) return false;
    CaptureTime after = duration.isValid() ? duration : defaultFrameDuration();
    changed = !(before == after);
  }
  if (changed) restartStreaming();
  return true;
}

bool CaptureDevice::setActiveVideoMaxFrameDuration(CaptureTime duration) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked()) return false;
  if (duration.isValid() && !durationInActiveRanges(duration)) return false;
  CaptureDeviceState wanted = state_;
  wanted.activeVideoMaxFrameDuration = duration;
  return commit(std::move(wanted), DeviceSetting::frameDuration);
}

bool CaptureDevice::lockForConfiguration(std::string* error) {
  std::lock_guard lock(mutex_);
  if (lockCount_ > 0) {
    ++lockCount_;
    return true;
  }
  std::string reason;
  if (!driver_->lockForConfiguration(reason)) {
    if (error) *error = reason;
    return false;
  }
  lockCount_ = 1;
  return true;
}

void CaptureDevice::unlockForConfiguration() {
  std::lock_guard lock(mutex_);
  if (lockCount_ == 0) return;
  if (--lockCount_ == 0) driver_->unlockForConfiguration();
}

bool CaptureDevice::isLockedForConfiguration() const {
  std::lock_guard lock(mutex_);
  return lockedLocked();
}

bool CaptureDevice::commit(CaptureDeviceState wanted, DeviceSetting setting) {
  if (!driver_->apply(wanted, setting)) return false;
  state_ = std::move(wanted);
  return true;
}

// Focus.

bool CaptureDevice::isFocusModeSupported(int64_t mode) const {
  return CaptureDeviceCapabilities::has(capabilities_.focusModes, mode);
}

int64_t CaptureDevice::focusMode() const {
  std::lock_guard lock(mutex_);
  driver_->refresh(state_);  // a one-time mode settles by itself
  return state_.focusMode;
}

bool CaptureDevice::setFocusMode(int64_t mode) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isFocusModeSupported(mode)) return false;
  CaptureDeviceState wanted = state_;
  wanted.focusMode = mode;
  return commit(std::move(wanted), DeviceSetting::focusMode);
}

CapturePoint CaptureDevice::focusPointOfInterest() const {
  std::lock_guard lock(mutex_);
  return state_.focusPointOfInterest;
}

bool CaptureDevice::setFocusPointOfInterest(CapturePoint point) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isFocusPointOfInterestSupported() || !inUnitSquare(point)) return false;
  CaptureDeviceState wanted = state_;
  wanted.focusPointOfInterest = point;
  return commit(std::move(wanted), DeviceSetting::focusPointOfInterest);
}

float CaptureDevice::lensPosition() const {
  std::lock_guard lock(mutex_);
  driver_->refresh(state_);
  return state_.lensPosition;
}

bool CaptureDevice::setFocusModeLockedWithLensPosition(float lensPosition) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isLockingFocusWithCustomLensPositionSupported()) return false;
  if (!(lensPosition >= 0.0f && lensPosition <= 1.0f)) return false;
  CaptureDeviceState wanted = state_;
  wanted.focusMode = AVCaptureFocusModeLocked;
  wanted.lensPosition = lensPosition;
  return commit(std::move(wanted), DeviceSetting::lensPosition);
}

bool CaptureDevice::isSmoothAutoFocusEnabled() const {
  std::lock_guard lock(mutex_);
  return state_.smoothAutoFocusEnabled;
}

bool CaptureDevice::setSmoothAutoFocusEnabled(bool enabled) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isSmoothAutoFocusSupported()) return false;
  CaptureDeviceState wanted = state_;
  wanted.smoothAutoFocusEnabled = enabled;
  return commit(std::move(wanted), DeviceSetting::smoothAutoFocus);
}

bool CaptureDevice::automaticallyAdjustsFaceDrivenAutoFocusEnabled() const {
  std::lock_guard lock(mutex_);
  return state_.faceDrivenAutoFocusEnabled;
}

bool CaptureDevice::setAutomaticallyAdjustsFaceDrivenAutoFocusEnabled(bool enabled) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isFocusModeSupported(AVCaptureFocusModeAutoFocus)) return false;
  CaptureDeviceState wanted = state_;
  wanted.faceDrivenAutoFocusEnabled = enabled;
  return commit(std::move(wanted), DeviceSetting::faceDrivenAutoFocus);
}

// Exposure.

bool CaptureDevice::isExposureModeSupported(int64_t mode) const {
  return CaptureDeviceCapabilities::has(capabilities_.exposureModes, mode);
}

int64_t CaptureDevice::exposureMode() const {
  std::lock_guard lock(mutex_);
  driver_->refresh(state_);  // a one-time mode settles by itself
  return state_.exposureMode;
}

bool CaptureDevice::setExposureMode(int64_t mode) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isExposureModeSupported(mode)) return false;
  CaptureDeviceState wanted = state_;
  wanted.exposureMode = mode;
  return commit(std::move(wanted), DeviceSetting::exposureMode);
}

CapturePoint CaptureDevice::exposurePointOfInterest() const {
  std::lock_guard lock(mutex_);
  return state_.exposurePointOfInterest;
}

bool CaptureDevice::setExposurePointOfInterest(CapturePoint point) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isExposurePointOfInterestSupported() || !inUnitSquare(point))
    return false;
  CaptureDeviceState wanted = state_;
  wanted.exposurePointOfInterest = point;
  return commit(std::move(wanted), DeviceSetting::exposurePointOfInterest);
}

CaptureTime CaptureDevice::exposureDuration() const {
  std::lock_guard lock(mutex_);
  driver_->refresh(state_);
  return state_.exposureDuration;
}

float CaptureDevice::ISO() const {
  std::lock_guard lock(mutex_);
  driver_->refresh(state_);
  return state_.ISO;
}

CaptureTime CaptureDevice::activeMaxExposureDuration() const {
  std::lock_guard lock(mutex_);
  return state_.activeFormat ? state_.activeFormat->maxExposureDuration : CaptureTime::invalid();
}

bool CaptureDevice::setExposureModeCustomWithDurationISO(CaptureTime duration, float iso) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isExposureModeSupported(AVCaptureExposureModeCustom)) return false;
  const auto& format = state_.activeFormat;
  if (!format) return false;
  CaptureDeviceState wanted = state_;
  if (duration.isValid()) {
    if (duration < format->minExposureDuration || duration > format->maxExposureDuration)
      return false;
    wanted.exposureDuration = duration;
  }
  if (iso != AVCaptureISOCurrent) {
    if (!(iso >= format->minISO && iso <= format->maxISO)) return false;
    wanted.ISO = iso;
  }
  wanted.exposureMode = AVCaptureExposureModeCustom;
  return commit(std::move(wanted), DeviceSetting::customExposure);
}

float CaptureDevice::exposureTargetBias() const {
  std::lock_guard lock(mutex_);
  return state_.exposureTargetBias;
}

bool CaptureDevice::setExposureTargetBias(float bias) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked()) return false;
  if (!(bias >= minExposureTargetBias() && bias <= maxExposureTargetBias())) return false;
  CaptureDeviceState wanted = state_;
  wanted.exposureTargetBias = bias;
  return commit(std::move(wanted), DeviceSetting::exposureTargetBias);
}

bool CaptureDevice::automaticallyAdjustsFaceDrivenAutoExposureEnabled() const {
  std::lock_guard lock(mutex_);
  return state_.faceDrivenAutoExposureEnabled;
}

bool CaptureDevice::setAutomaticallyAdjustsFaceDrivenAutoExposureEnabled(bool enabled) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isExposureModeSupported(AVCaptureExposureModeAutoExpose)) return false;
  CaptureDeviceState wanted = state_;
  wanted.faceDrivenAutoExposureEnabled = enabled;
  return commit(std::move(wanted), DeviceSetting::faceDrivenAutoExposure);
}

// White balance.

bool CaptureDevice::isWhiteBalanceModeSupported(int64_t mode) const {
  return CaptureDeviceCapabilities::has(capabilities_.whiteBalanceModes, mode);
}

int64_t CaptureDevice::whiteBalanceMode() const {
  std::lock_guard lock(mutex_);
  driver_->refresh(state_);  // a one-time mode settles by itself
  return state_.whiteBalanceMode;
}

bool CaptureDevice::setWhiteBalanceMode(int64_t mode) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isWhiteBalanceModeSupported(mode)) return false;
  CaptureDeviceState wanted = state_;
  wanted.whiteBalanceMode = mode;
  return commit(std::move(wanted), DeviceSetting::whiteBalanceMode);
}

AVCaptureWhiteBalanceGains CaptureDevice::deviceWhiteBalanceGains() const {
  std::lock_guard lock(mutex_);
  driver_->refresh(state_);
  return state_.whiteBalanceGains;
}

bool CaptureDevice::setWhiteBalanceModeLockedWithDeviceWhiteBalanceGains(
    AVCaptureWhiteBalanceGains gains) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isLockingWhiteBalanceWithCustomDeviceGainsSupported()) return false;
  float top = maxWhiteBalanceGain();
  for (float g : {gains.redGain, gains.greenGain, gains.blueGain}) {
    if (!(g >= 1.0f && g <= top)) return false;
  }
  CaptureDeviceState wanted = state_;
  wanted.whiteBalanceMode = AVCaptureWhiteBalanceModeLocked;
  wanted.whiteBalanceGains = gains;
  return commit(std::move(wanted), DeviceSetting::whiteBalanceGains);
}

AVCaptureWhiteBalanceGains CaptureDevice::deviceWhiteBalanceGainsForTemperatureAndTintValues(
    AVCaptureWhiteBalanceTemperatureAndTintValues values) const {
  return whiteBalanceGainsForTemperatureAndTint(values);
}

AVCaptureWhiteBalanceTemperatureAndTintValues
CaptureDevice::temperatureAndTintValuesForDeviceWhiteBalanceGains(
    AVCaptureWhiteBalanceGains gains) const {
  return temperatureAndTintForWhiteBalanceGains(gains);
}

// Zoom.

double CaptureDevice::videoZoomFactor() const {
  std::lock_guard lock(mutex_);
  return state_.videoZoomFactor;
}

bool CaptureDevice::setVideoZoomFactor(double factor) {
  return rampToVideoZoomFactorWithRate(factor, 0.0f);
}

bool CaptureDevice::rampToVideoZoomFactorWithRate(double factor, float rate) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !state_.activeFormat || rate < 0) return false;
  if (!(factor >= 1.0 && factor <= state_.activeFormat->videoMaxZoomFactor)) return false;
  CaptureDeviceState wanted = state_;
  wanted.videoZoomFactor = factor;
  wanted.videoZoomRampRate = rate;
  return commit(std::move(wanted), DeviceSetting::videoZoomFactor);
}

float CaptureDevice::videoZoomRampRate() const {
  std::lock_guard lock(mutex_);
  return state_.videoZoomRampRate;
}

// Torch.

bool CaptureDevice::isTorchModeSupported(int64_t mode) const {
  return hasTorch() && (mode == AVCaptureTorchModeOff || mode == AVCaptureTorchModeOn);
}

int64_t CaptureDevice::torchMode() const {
  std::lock_guard lock(mutex_);
  return state_.torchMode;
}

float CaptureDevice::torchLevel() const {
  std::lock_guard lock(mutex_);
  return state_.torchMode == AVCaptureTorchModeOff ? 0.0f : state_.torchLevel;
}

bool CaptureDevice::setTorchMode(int64_t mode) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isTorchModeSupported(mode)) return false;
  CaptureDeviceState wanted = state_;
  wanted.torchMode = mode;
  if (mode == AVCaptureTorchModeOn && wanted.torchLevel <= 0.0f) wanted.torchLevel = 1.0f;
  return commit(std::move(wanted), DeviceSetting::torch);
}

bool CaptureDevice::setTorchModeOnWithLevel(float level, std::string* error) {
  auto fail = [error](const char* reason) {
    if (error) *error = reason;
    return false;
  };
  std::lock_guard lock(mutex_);
  if (!lockedLocked()) return fail("the device is not locked for configuration");
  if (!hasTorch()) return fail("the device has no torch");
  if (!(level > 0.0f && level <= 1.0f))
    return fail("the torch level must be above 0 and at most 1");
  CaptureDeviceState wanted = state_;
  wanted.torchMode = AVCaptureTorchModeOn;
  wanted.torchLevel = level;
  if (!commit(std::move(wanted), DeviceSetting::torch)) return fail("the torch refused the level");
  return true;
}

// Subject area.

bool CaptureDevice::isSubjectAreaChangeMonitoringEnabled() const {
  std::lock_guard lock(mutex_);
  return state_.subjectAreaChangeMonitoringEnabled;
}

bool CaptureDevice::setSubjectAreaChangeMonitoringEnabled(bool enabled) {
  bool changed = false;
  {
    std::lock_guard lock(mutex_);
    if (!lockedLocked()) return false;
    CaptureDeviceState wanted = state_;
    changed = wanted.subjectAreaChangeMonitoringEnabled != enabled;
    wanted.subjectAreaChangeMonitoringEnabled = enabled;
    if (!commit(std::move(wanted), DeviceSetting::subjectAreaChangeMonitoring)) return false;
  }
  if (changed) monitoringChanges_.notify(enabled);
  return true;
}

Subscription CaptureDevice::observeSubjectAreaChangeMonitoring(std::function<void(bool)> observer) {
  return monitoringChanges_.add(
      [observer = std::move(observer)](const bool& enabled) { observer(enabled); });
}

Subscription CaptureDevice::observeSubjectAreaDidChange(std::function<void()> observer) {
  return subjectAreaChanges_.observe(
      [observer = std::move(observer)](const uint64_t&, const uint64_t&) { observer(); });
}

void CaptureDevice::subjectAreaDidChange() {
  {
    std::lock_guard lock(mutex_);
    if (!state_.subjectAreaChangeMonitoringEnabled) return;
  }
  subjectAreaChanges_.set(++subjectAreaChangeCount_);
}

// Low light, HDR.

bool CaptureDevice::automaticallyEnablesLowLightBoostWhenAvailable() const {
  std::lock_guard lock(mutex_);
  return state_.automaticallyEnablesLowLightBoostWhenAvailable;
}

bool CaptureDevice::setAutomaticallyEnablesLowLightBoostWhenAvailable(bool enabled) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || !isLowLightBoostSupported()) return false;
  CaptureDeviceState wanted = state_;
  wanted.automaticallyEnablesLowLightBoostWhenAvailable = enabled;
  return commit(std::move(wanted), DeviceSetting::lowLightBoost);
}

bool CaptureDevice::automaticallyAdjustsVideoHDREnabled() const {
  std::lock_guard lock(mutex_);
  return state_.automaticallyAdjustsVideoHDREnabled;
}

bool CaptureDevice::setAutomaticallyAdjustsVideoHDREnabled(bool enabled) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked()) return false;
  CaptureDeviceState wanted = state_;
  wanted.automaticallyAdjustsVideoHDREnabled = enabled;
  return commit(std::move(wanted), DeviceSetting::videoHDR);
}

bool CaptureDevice::isVideoHDREnabled() const {
  std::lock_guard lock(mutex_);
  return state_.videoHDREnabled;
}

bool CaptureDevice::setVideoHDREnabled(bool enabled) {
  std::lock_guard lock(mutex_);
  if (!lockedLocked() || state_.automaticallyAdjustsVideoHDREnabled) return false;
  if (!state_.activeFormat || !state_.activeFormat->videoHDRSupported) return false;
  CaptureDeviceState wanted = state_;
  wanted.videoHDREnabled = enabled;
  return commit(std::move(wanted), DeviceSetting::videoHDR);
}

CaptureDeviceState CaptureDevice::state() const {
  std::lock_guard lock(mutex_);
  driver_->refresh(state_);
  return state_;
}

}  // namespace oxelo
