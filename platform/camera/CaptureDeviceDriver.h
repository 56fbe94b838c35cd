#pragma once

#include <memory>
#include <string>

#include "platform/camera/CameraError.h"
#include "platform/camera/CameraFrameSink.h"
#include "platform/camera/CaptureDeviceState.h"

namespace oxelo {

// What a backend does for one camera underneath the device model. The model
// calls it with its own mutex held, so calls never overlap; they may come
// from any thread. The two streaming calls are the exception: the model
// makes them with a mutex of their own, not the configuration one, so that a
// sink may read the model while a stop waits for the delivery thread.
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
  // (exposure time, ISO, lens position, white-balance gains), and the end of
  // a one-time mode (1), which settles into locked (0) when the camera is
  // done.
  virtual void refresh(CaptureDeviceState& state) = 0;

  // Starts delivering pictures of `format` (one of the model's formats), one
  // per `frameDuration`, into `sink` on a delivery thread of the driver's
  // own. An error, and nothing started, when the camera cannot stream it.
  // Called only while not streaming.
  virtual CameraError startStreaming(const CaptureDeviceFormat& format, CaptureTime frameDuration,
                                     std::weak_ptr<CameraFrameSink> sink) = 0;
  // Ends the stream and waits for its delivery thread: no sink call happens
  // after it returns. Nothing when not streaming; also after the stream
  // ended by itself, to free what it held.
  virtual void stopStreaming() = 0;
};

}  // namespace oxelo
