#pragma once

#include "platform/camera/CameraError.h"
#include "platform/camera/CameraFrame.h"

namespace oxelo {

// Where a streaming camera puts its pictures: the capture session. Held
// weakly by the camera; a sink that is gone simply gets nothing.
//
// Both calls come on the backend's delivery thread (the camera queue: the
// V4L2 stream's poll thread, the virtual camera's frame queue), one at a
// time and in order, never after stopStreaming() has returned. They should
// return quickly: a frame that arrives while the previous call is still
// running waits in the driver's buffers, and a late virtual frame is skipped.
class CameraFrameSink {
 public:
  virtual ~CameraFrameSink() = default;
  virtual void cameraDidOutputFrame(const CameraFramePtr& frame) = 0;
  // The stream ended by itself (the camera vanished or failed): once, after
  // the last frame. Not called for a stop that the owner asked for. (A
  // restart for a new format that fails tells it on the changing thread.)
  virtual void cameraStreamDidEnd(const CameraError& error) { (void)error; }
};

}  // namespace oxelo
