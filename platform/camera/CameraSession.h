#pragma once

#include <memory>
#include <mutex>

#include "platform/camera/CameraFrameSink.h"
#include "platform/camera/CaptureDevice.h"

namespace oxelo {

// The platform's capture session: one camera at a time streaming into one
// sink, the camera exchangeable while it runs. The sink is held weakly and
// called as CameraFrameSink says, on the streaming camera's delivery thread.
//
// Any thread, but not from the sink's own calls.
class CameraSession {
 public:
  explicit CameraSession(std::weak_ptr<CameraFrameSink> sink);
  ~CameraSession();  // stops
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;

  std::shared_ptr<CaptureDevice> device() const;
  // Exchanges the camera. While running the old camera stops and the new one
  // starts; when the new one cannot stream, the old one streams again, stays
  // the session's camera, and the error is returned.
  CameraError setDevice(std::shared_ptr<CaptureDevice> device);

  // Starts the camera streaming. An error, and not running, when it cannot
  // (no camera, in use, no permission, ...). Running already: nothing.
  CameraError startRunning();
  void stopRunning();
  // False again once the camera's stream ended by itself (it vanished).
  bool isRunning() const;

 private:
  class Relay;  // the sink given to the camera: forwards, and sees the end

  mutable std::mutex mutex_;  // orders the operations; not held by the relay's calls
  std::shared_ptr<Relay> relay_;
  std::shared_ptr<CaptureDevice> device_;
  bool running_ = false;
};

}  // namespace oxelo
