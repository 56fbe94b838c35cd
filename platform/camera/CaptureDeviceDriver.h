#pragma once

#include <string>

#include "platform/camera/CaptureDeviceState.h"

namespace oxelo {

// What a backend does for one camera underneath the device model. The model
// calls it with its own mutex held, so calls never overlap; they may come
// from any thread. Frame delivery joins this interface with the capture
// session (start and stop streaming in the active format into a frame sink);
// the device model's configuration surface does not change for it.
class CaptureDeviceDriver {
 public:
  virtual ~CaptureDeviceDriver() = default;

  // Takes the device for configuration. False, with the reason in `error`,
  // when it cannot be had; the model then refuses every change.
  virtual bool lockForConfiguration(std::string& error) = 0;
  virtual void unlockForConfiguration() = 0;

  // Carries one change to the hardware: `wanted` is the whole state with the
  // change made. False when the hardware refused; the model keeps the old
  // state.
  virtual bool apply(const CaptureDeviceState& wanted, DeviceSetting setting) = 0;

  // Reads every value the hardware can report into `state`, once, when the
  // model is built (modes included).
  virtual void load(CaptureDeviceState& state) = 0;

  // Reads the values that the hardware moves by itself in automatic modes
  // (exposure time, ISO, lens position, white-balance gains).
  virtual void refresh(CaptureDeviceState& state) = 0;
};

}  // namespace oxelo
