#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "filters/GPUImageOutput.h"
#include "platform/camera/CameraFrameSink.h"
#include "platform/camera/CameraSession.h"
#include "platform/camera/CameraSystem.h"
#include "platform/dispatch/Semaphore.h"

namespace oxelo {

class GLProgram;

// Told of each camera frame, and of the end of the camera's stream. Every
// operation is optional and runs on the video processing queue.
class GPUImageVideoCameraDelegate {
 public:
  virtual ~GPUImageVideoCameraDelegate() = default;
  // Each frame taken in, just before it is drawn (also while paused).
  virtual void willOutputSampleBuffer(const CameraFramePtr& frame) { (void)frame; }
  // Asked after willOutputSampleBuffer() only while the conversion draw would
  // leave the picture as it is (rotation mode 0, which also means no mirror)
  // and capture is not paused: true when the delegate has used the frame as
  // it is, and then nothing is drawn and the targets hear of no frame. The
  // camera knows only its own draw; whether the rest of the chain would
  // change the picture is the delegate's to say.
  virtual bool outputFrameWithoutDrawing(const CameraFramePtr& frame) {
    (void)frame;
    return false;
  }
  // The camera's stream ended by itself while capturing (the camera vanished
  // or failed); no frame follows until capture is started again.
  virtual void cameraDidFail(const CameraError& error) { (void)error; }
};

// YUV-to-RGB matrices by columns, as the conversion shader takes them.
using ColourConversionMatrix = std::array<float, 9>;
extern const ColourConversionMatrix kColorConversion601;           // BT.601, video range
extern const ColourConversionMatrix kColorConversion601FullRange;  // BT.601, full range
extern const ColourConversionMatrix kColorConversion709;           // BT.709

// The mode of the picture that `first` turns and `then` turns again, as one
// draw: the texture coordinates of `then` read through those of `first`.
uint64_t composeRotationModes(uint64_t first, uint64_t then);

// The rotation mode of the conversion draw. The table is the one for a phone
// camera (facing its position; sensor rotation 270 at the back, 90 at the
// front, so that the front camera sees the scene half turned against the
// back one): by position, the mirror flag of that camera and the interface
// orientation (1 to 4; any other gives 0). A camera mounted otherwise first
// turns its picture into the one such a phone camera would see: by its sensor
// rotation against the phone's at that position when it is built into the
// device, and, for an external camera (which does not turn with the device),
// as the back camera in landscape right, the one column where the phone's
// picture needs no turn.
uint64_t cameraRotationMode(AVCaptureDevicePosition position, bool mirror, int64_t orientation,
                            const CameraMounting& mounting);

// The source of the filter chain: runs a capture session on one camera of
// the camera model, converts each NV12 frame to RGB in one draw with the
// rotation folded in, and hands the framebuffer to its targets.
//
// Frames arrive on the camera's delivery thread; one at a time is taken in
// (a one-permit semaphore, tried without waiting: a frame that comes while
// the last one is in work is dropped) and the rest runs on the video
// processing queue. While the conversion draw would turn nothing (rotation
// mode 0) the delegate may take the frame as it is instead, and nothing is
// drawn (GPUImageVideoCameraDelegate::outputFrameWithoutDrawing). Control
// operations come from one thread at a time (the main queue), never from
// the video processing queue.
class GPUImageVideoCamera : public GPUImageOutput,
                            public CameraFrameSink,
                            public std::enable_shared_from_this<GPUImageVideoCamera> {
 public:
  // None when there is no camera at `position` (1 back, 2 front) or it cannot
  // deliver `sessionPreset`, with the reason in `error` when given: the
  // backend's own problem with a camera it found but cannot use (in use, no
  // permission) where it has one, else no camera, unsupported, or failed (no
  // GL context). `cameras` none: CameraSystem::current().
  static std::shared_ptr<GPUImageVideoCamera> create(const std::string& sessionPreset,
                                                     AVCaptureDevicePosition position,
                                                     std::shared_ptr<CameraSystem> cameras = {},
                                                     CameraError* error = nullptr);
  ~GPUImageVideoCamera() override;

  // The camera's error when it cannot start streaming (in use, gone, ...).
  CameraError startCameraCapture();
  // Returns once no frame of this camera is in work on the video processing
  // queue (the destructor too).
  void stopCameraCapture();
  bool isRunning() const;
  void pauseCameraCapture() { capturePaused_ = true; }
  void resumeCameraCapture() { capturePaused_ = false; }
  bool capturePaused() const { return capturePaused_; }

  // Camera selection; each ends in the exchange of inputs, which keeps the
  // old camera when the new one cannot stream.
  void rotateCamera();
  void selectCameraByIndex(int64_t index);
  bool selectCameraByPosition(AVCaptureDevicePosition position, const std::string& deviceType);
  AVCaptureDevicePosition cameraPosition() const;
  bool isFrontFacingCameraPresent() const;
  bool isBackFacingCameraPresent() const;
  std::shared_ptr<CaptureDevice> inputCamera() const;

  // Above 0 fixes the rate; 0 or less gives the timing back to the device.
  void setFrameRate(int32_t frameRate);
  int32_t frameRate() const { return frameRate_; }

  void setOutputImageOrientation(int64_t orientation);
  int64_t outputImageOrientation() const { return outputImageOrientation_; }
  void setHorizontallyMirrorFrontFacingCamera(bool mirror);
  void setHorizontallyMirrorRearFacingCamera(bool mirror);
  bool horizontallyMirrorFrontFacingCamera() const { return mirrorFront_; }
  bool horizontallyMirrorRearFacingCamera() const { return mirrorRear_; }
  uint64_t internalRotation() const { return internalRotation_; }
  uint64_t outputRotation() const { return outputRotation_; }
  const std::string& captureSessionPreset() const { return captureSessionPreset_; }

  void setDelegate(std::weak_ptr<GPUImageVideoCameraDelegate> delegate);

  // Video processing queue: the size of the last frame taken in.
  int32_t imageBufferWidth() const { return imageBufferWidth_; }
  int32_t imageBufferHeight() const { return imageBufferHeight_; }
  // Video processing queue: the matrix of the frame in hand.
  const ColourConversionMatrix& preferredConversion() const { return *preferredConversion_; }
  bool isFullYUVRange() const { return isFullYUVRange_; }

  // Gives the new target the output rotation at once.
  void addTarget(std::shared_ptr<GPUImageInput> target, int textureLocation) override;
  using GPUImageOutput::addTarget;

  // CameraFrameSink: the camera's delivery thread. The end of the stream
  // reaches the delegate's cameraDidFail() on the video processing queue.
  void cameraDidOutputFrame(const CameraFramePtr& frame) override;
  void cameraStreamDidEnd(const CameraError& error) override;

 private:
  GPUImageVideoCamera(std::shared_ptr<CameraSystem> cameras, std::shared_ptr<CaptureDevice> device,
                      std::string sessionPreset);
  bool setUp();
  void finishFrameInWork();
  void processVideoSampleBuffer(const CameraFramePtr& frame,
                                const std::shared_ptr<GPUImageVideoCameraDelegate>& delegate);
  void uploadPlanes(const CameraFrame& frame);
  void convertYUVToRGBOutput(GPUSize rotatedSize, bool fullRange);
  void updateTargetsForVideoCamera(GPUSize size, double time);
  void updateOrientationSendToTargets();
  bool exchangeInput(const std::shared_ptr<CaptureDevice>& device);
  long long backCameraType() const;

  struct Conversion {
    std::shared_ptr<GLProgram> program;
    int position = -1, textureCoordinate = -1;
    int luminanceUniform = -1, chrominanceUniform = -1, matrixUniform = -1;
  };

  std::shared_ptr<CameraSystem> cameras_;
  std::shared_ptr<CameraSession> captureSession_;
  mutable std::mutex inputMutex_;
  std::shared_ptr<CaptureDevice> inputCamera_;  // inputMutex_
  std::string captureSessionPreset_;
  std::weak_ptr<GPUImageVideoCameraDelegate> delegate_;  // set before frames flow

  std::atomic<bool> takingFrames_{false};  // between a start and a stop of capture
  Semaphore frameRenderingSemaphore_{1};
  std::atomic<bool> capturePaused_{false};
  std::atomic<int32_t> frameRate_{0};
  int64_t outputImageOrientation_ = 0;
  bool mirrorFront_ = false;
  bool mirrorRear_ = false;

  // Video processing queue.
  uint64_t internalRotation_ = kRotationNone;
  uint64_t outputRotation_ = kRotationNone;
  Conversion fullRangeConversion_;
  Conversion videoRangeConversion_;
  const ColourConversionMatrix* preferredConversion_ = &kColorConversion709;
  bool isFullYUVRange_ = true;
  int32_t imageBufferWidth_ = 0;
  int32_t imageBufferHeight_ = 0;
  bool unpackRowLength_ = false;
  unsigned planeLuminance_ = 0;  // the plane textures of the frame in hand
  unsigned planeChrominance_ = 0;
  std::vector<uint8_t> scratch_;
};

}  // namespace oxelo
