#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "capture/GPUImageVideoCamera.h"
#include "filters/GPUImageAlphaBlendFilter.h"
#include "filters/GPUImageCropFilter.h"
#include "filters/GPUImageFilter.h"
#include "filters/GPUImageView.h"
#include "filters/GPUImageYUVConverter.h"
#include "filters/LFGPUImageBeautifyFilter.h"
#include "filters/LFGPUImageBeautyFilter.h"
#include "media/LFLiveVideoConfiguration.h"
#include "media/PixelBuffer.h"
#include "platform/dispatch/Observable.h"

namespace oxelo {

class LFVideoCapture;

// The colour tags that go with an output picture when the setting
// `colorspace` is "Auto": primaries and transfer are BT.709; the matrix is
// that of the camera's last sample.
struct LFVideoColourTags {
  bool matrixBT601 = false;
};

// Receiver of the finished pictures: the session. Called on the video
// processing queue; `tags` is null when no tags are attached. The picture is
// the camera's own NV12 frame where the chain has nothing to draw, else the
// output node's picture as BGRA or, converted on the GPU, in the output
// pixel format (see LFVideoCapture); its presentation time is the camera
// frame's.
class LFVideoCaptureDelegate {
 public:
  virtual ~LFVideoCaptureDelegate() = default;
  virtual void captureOutput(LFVideoCapture& capture, const std::shared_ptr<PixelBuffer>& buffer,
                             const LFVideoColourTags* tags) = 0;
};

// Told of camera changes: the live view. Every operation is optional.
class LFVideoCaptureViewDelegate {
 public:
  virtual ~LFVideoCaptureViewDelegate() = default;
  virtual void videoDeviceWillChange() {}
  virtual void videoDeviceDidChange() {}
  virtual void subjectAreaDidChange() {}
  // The camera stopped delivering while capture ran (it vanished, or another
  // program took it), or capture could not start: the error says why. On the
  // main queue.
  virtual void videoDeviceDidFail(const CameraError& error) { (void)error; }
};

// The outcome of the walk through a camera's formats for a size and a rate.
struct ActiveFormatChoice {
  CaptureDeviceFormatPtr winner;    // the first format with the size and the rate
  CaptureDeviceFormatPtr fallback;  // else the candidate with the best maximum rate
  double best = 0.0;                // that maximum rate
  bool exact = false;               // a candidate had exactly the size
  CaptureDeviceFormatPtr chosen() const { return winner ? winner : fallback; }
};

// Walks `formats` in order for width W, height H and rate R: only full-range
// bi-planar video formats at least W x H count, and of those only the exact
// size, the same proportions, or any for a request wider than 1920.
ActiveFormatChoice chooseActiveFormat(const std::vector<CaptureDeviceFormatPtr>& formats,
                                      int32_t width, int32_t height, double frameRate);

// The crop the chain needs between the camera and the filter for `preset`:
// the central part of the format (formatWidth x formatHeight, as the sensor
// delivers it) of the output's proportions, 1 to 1. None for presets other
// than 0, 3, 5 and 7 and where the proportions already agree.
std::optional<CropRegion> cropRegionForPreset(LFLiveVideoSessionPreset preset, VideoSize videoSize,
                                              int32_t formatWidth, int32_t formatHeight,
                                              bool landscape);

// The front of the video side: owns the camera input, builds the chain from
// it to the preview and to the output node, chooses the camera's format for
// the configured size and rate, and hands every finished picture to its
// delegate. Control operations come from the main queue; pictures are
// delivered on the video processing queue.
//
// Frames without a draw. Drawing costs processor time where the GPU is a
// software one, so while the chain would hand on the camera's picture
// unchanged, the camera's NV12 frame itself goes to the delegate, wrapped
// with no copy, its matrix, range and time: the same one-permit rule, the
// same willOutputSampleBuffer() and colour tags. The check is split where
// the knowledge is: the camera input offers a frame only while its own draw
// is the identity (rotation mode 0: the orientation, the camera's mounting
// and the mirror flag together turn nothing), and this class takes it only
// while the rest of the chain is the identity too: built, no crop, the
// pass-through filter, no preview, and the frame of exactly the output's
// size. Any change (mirror, another camera, another orientation, a preview,
// a crop) sends the next frame through the draws again, and back.
//
// Pictures that are drawn go out as the output node's BGRA read-back, or,
// where converting on the GPU pays (GPUImageYUVConverter::
// preferredOnThisMachine()) and the output pixel format is NV12 or I420,
// converted on the GPU to that format, video range, in the matrix of the
// camera's last sample.
class LFVideoCapture : public GPUImageVideoCameraDelegate,
                       public std::enable_shared_from_this<LFVideoCapture> {
 public:
  // Begins following the application's life cycle and creates the camera
  // input (none when no camera can be had with either preset).
  static std::shared_ptr<LFVideoCapture> create(
      std::shared_ptr<LFLiveVideoConfiguration> configuration);
  ~LFVideoCapture() override;

  void setDelegate(std::weak_ptr<LFVideoCaptureDelegate> delegate);
  void setCaptureDelegate(std::weak_ptr<LFVideoCaptureViewDelegate> delegate) {
    captureDelegate_ = std::move(delegate);
  }

  // Why there is no camera (videoCamera() none: the error of the failed
  // open), or why the camera last stopped or could not start; none while it
  // works. Main queue.
  const CameraError& cameraError() const { return cameraError_; }

  // The preview: none (the default, and the headless screen's) leaves the
  // preview branch (blend filter and view) out of the chain, so it draws
  // nothing; a view puts it in. gpuImageView() is the same view.
  void setPreView(std::shared_ptr<GPUImageView> view);
  std::shared_ptr<GPUImageView> preView() const { return gpuImageView_; }

  // The layout the encoder takes best (its preferred pixel format): where the
  // chain draws and GPU conversion pays, pictures come in it. BGRA until set.
  void setOutputPixelFormat(PixelFormat format) { outputPixelFormat_ = format; }
  PixelFormat outputPixelFormat() const { return outputPixelFormat_; }

  bool running() const { return running_; }
  void setRunning(bool running);
  bool beautyFace() const { return beautyFace_; }
  void setBeautyFace(bool beautyFace);
  int64_t beautyMethod() const { return beautyMethod_; }
  // Stored; the chain takes it at its next rebuild (setBeautyFace() while
  // running, or setRunning()).
  void setBeautyMethod(int64_t method) { beautyMethod_ = method; }
  // Stored, and given to the one-pass beauty filter while it stands in the
  // chain; a filter the chain builds later starts at its own defaults.
  double beautyLevel() const { return beautyLevel_; }
  void setBeautyLevel(double level);
  double brightLevel() const { return brightLevel_; }
  void setBrightLevel(double level);
  bool mirror() const { return mirror_; }
  void setMirror(bool mirror);
  bool autoRotate() const { return autoRotate_; }
  void setAutoRotate(bool autoRotate) { autoRotate_ = autoRotate; }
  bool isSampleBT601() const { return isSampleBT601_; }

  // Camera switching.
  void setCameraByIndex(int64_t index);
  void setCameraByPosition(AVCaptureDevicePosition position, const std::string& deviceType);
  // Turns the camera round, whatever the argument.
  void setCaptureDevicePosition(AVCaptureDevicePosition position);
  AVCaptureDevicePosition captureDevicePosition() const;
  std::string captureDeviceType() const;
  int32_t videoFrameRate() const;
  std::shared_ptr<CaptureDevice> device() const;

  // Makes the first format that holds the size and the rate active (else the
  // size with the best rate) and sets the camera input's rate to match. True
  // only for a format of exactly that size at that rate.
  bool setVideoSize(int32_t width, int32_t height, double frameRate,
                    const std::shared_ptr<CaptureDevice>& device);
  // The device options of the settings, each where the camera supports it.
  void initCaptureDevice(const std::shared_ptr<CaptureDevice>& device);
  void reloadFilter();

  // Camera controls. Setters run on the main queue (the host's commands, the
  // gestures and the panel); getters may be called from any thread, since the
  // status block reads them on the send queue. Each reads the camera in use
  // afresh; without a camera a setter does nothing and a getter gives 0, 0.0
  // or false, and 1.0 for the two zoom values. Every change of the device is
  // made under its configuration lock and skipped when the lock fails; a
  // camera without a feature is left as it is. Modes are the device's numbers:
  // 0 locked, 1 one-time automatic, 2 continuous, 3 custom exposure; "the best
  // automatic mode" is 2 where the device has it, else 1, else none.

  // Zoom as a factor. Below 4x the caller's scale runs from 0 to 4 and maps to
  // the device's range; the result is kept from 1.0 to maxZoomScale(). The
  // first zoom of a capture ramps there at rate 5.0, later ones jump.
  double zoomScale() const;
  void setZoomScale(double scale);
  // The active format's limit, at most 20.0 on triple and dual wide cameras
  // and 10.0 on the others.
  double maxZoomScale() const;

  // Point of interest, (x, y) in fractions of the picture as the user sees
  // it: turned into the device's coordinates by the camera's position and
  // orientation, given to focus and exposure, and followed by a one-time
  // automatic pass of each control not locked by its flag (a continuous pass
  // on a device without one, returned to mode 0 on the main queue 0.5 s later
  // for focus and exposure, 2.0 s for white balance). Starts watching for a
  // change of the subject area. Main queue.
  void setFocusPoint(double x, double y);
  // The last point given to the device, in its coordinates; (0, 0) before.
  CapturePoint focusPoint() const { return focusPoint_; }
  // The scene moved on after a tap: the point goes back to the middle, and
  // the automatic modes not locked come back; the capture delegate is told.
  // Main queue (the camera's report is posted there).
  void subjectAreaDidChange();

  bool customFocusSupported() const;     // a point of interest for focus
  bool customExposureSupported() const;  // exposure mode 3

  // The automatic modes: true while the device is in its best automatic mode.
  // Setting true takes that mode, false takes mode 0; both do nothing when
  // the getter already agrees. autoExposure false leaves custom mode as it is.
  bool autoFocus() const;
  void setAutoFocus(bool on);
  bool autoExposure() const;
  void setAutoExposure(bool on);
  bool autoWhiteBalance() const;
  void setAutoWhiteBalance(bool on);

  // The three locks are this capture's own flags: a locked control is left
  // alone by setFocusPoint() and subjectAreaDidChange(). Locking turns its
  // automatic mode off; releasing does not bring it back. Cleared by a real
  // change of camera.
  bool afLock() const { return afLock_; }
  void setAfLock(bool lock);
  bool aeLock() const { return aeLock_; }
  void setAeLock(bool lock);
  bool awbLock() const { return awbLock_; }
  void setAwbLock(bool lock);

  // Focus at a lens position from 0.0 to 1.0; anything else is refused.
  double lensPosition() const;
  void setLensPosition(double position);

  // Custom exposure (mode 3) on, or mode 0 off.
  bool customExposure() const;
  void setCustomExposure(bool on);
  // Exposure time in seconds and ISO, in custom mode: a time of 0 or less
  // keeps the present one, as does a time below minExposure(); a time above
  // maxExposure() is cut to it. An ISO of 0 keeps the present one, others are
  // kept within minISO() and maxISO(). The bias goes back to 0.0.
  void setExposureAndISO(double seconds, double iso);
  double exposure() const;
  void setExposure(double seconds);  // the ISO stays
  double minExposure() const;
  double maxExposure() const;
  double ISO() const;
  void setISO(double iso);  // the exposure time stays
  double minISO() const;
  double maxISO() const;

  // Exposure bias in EV, kept within its limits; the exposure mode stays.
  double exposureTargetBias() const;
  void setExposureTargetBias(double bias);
  double minExposureTargetBias() const;
  double maxExposureTargetBias() const;

  // White balance by temperature (kelvin) and tint, locked at the gains they
  // give, each gain kept from 1.0 to the device's maximum.
  AVCaptureWhiteBalanceTemperatureAndTintValues wbTempAndTint() const;
  void setWbTempAndTint(float temperature, float tint);

  // Torch level 0 (off) to 5 (full); above 5 is refused. Failures are logged.
  int64_t torch() const;
  void setTorch(int64_t level);

  // Life cycle and orientation: the application going inactive, coming back,
  // and the interface turning to orientation `orientation`.
  void willEnterBackground();
  void willEnterForeground();
  void statusBarChanged(int64_t orientation);

  std::shared_ptr<GPUImageVideoCamera> videoCamera() const { return videoCamera_; }
  std::shared_ptr<GPUImageView> gpuImageView() const { return gpuImageView_; }
  std::shared_ptr<GPUImageCropFilter> cropFilter() const { return cropfilter_; }
  // The stage in the middle of the chain: the pass-through, or one of the
  // two beauty filters (beautyFilter() or beautifyFilter(), whichever stands).
  std::shared_ptr<GPUImageOutput> filter() const { return filter_; }
  std::shared_ptr<LFGPUImageBeautyFilter> beautyFilter() const { return beautyFilter_; }
  std::shared_ptr<LFGPUImageBeautifyFilter> beautifyFilter() const { return beautifyFilter_; }
  std::shared_ptr<GPUImageFilter> output() const { return output_; }
  const std::shared_ptr<LFLiveVideoConfiguration>& configuration() const { return configuration_; }

  // GPUImageVideoCameraDelegate.
  void willOutputSampleBuffer(const CameraFramePtr& frame) override;
  bool outputFrameWithoutDrawing(const CameraFramePtr& frame) override;
  void cameraDidFail(const CameraError& error) override;

 private:
  explicit LFVideoCapture(std::shared_ptr<LFLiveVideoConfiguration> configuration);
  void createCamera();
  void reloadMirror();
  void processVideo(GPUImageOutput& output, double time);
  void deliver(const std::shared_ptr<PixelBuffer>& buffer);
  // Says on the video processing queue at which size camera frames may skip
  // the draws, from the chain as it stands; called after every change of it.
  void updateDirectPath();
  void attachPreview();
  void reportCameraFailure(const CameraError& error);
  template <typename Select>
  void switchCamera(Select select);
  void observeSubjectArea(const std::shared_ptr<CaptureDevice>& device);
  std::shared_ptr<GPUImageAlphaBlendFilter> blendFilter();

  std::shared_ptr<LFLiveVideoConfiguration> configuration_;
  // Camera controls. The locks and the torch level are read by the send
  // queue too; the rest belongs to the main queue.
  std::atomic<bool> afLock_{false};
  std::atomic<bool> aeLock_{false};
  std::atomic<bool> awbLock_{false};
  std::atomic<int64_t> torch_{0};
  bool firstZoomScale_ = true;
  CapturePoint focusPoint_{0.0, 0.0};

  std::weak_ptr<LFVideoCaptureDelegate> delegate_;  // video processing queue
  std::weak_ptr<LFVideoCaptureViewDelegate> captureDelegate_;

  bool running_ = false;
  bool beautyFace_ = false;
  int64_t beautyMethod_ = 0;
  double beautyLevel_ = 0.5;
  double brightLevel_ = 0.5;
  bool mirror_ = true;
  bool autoRotate_ = false;
  std::atomic<bool> isSampleBT601_{true};
  bool attachColorInfo_ = false;

  std::shared_ptr<GPUImageVideoCamera> videoCamera_;
  // filter_ and filterInput_ are the same node, as a source and as a target.
  std::shared_ptr<GPUImageOutput> filter_;
  std::shared_ptr<GPUImageInput> filterInput_;
  std::shared_ptr<LFGPUImageBeautyFilter> beautyFilter_;
  std::shared_ptr<LFGPUImageBeautifyFilter> beautifyFilter_;
  std::shared_ptr<GPUImageCropFilter> cropfilter_;
  std::shared_ptr<GPUImageFilter> output_;
  std::shared_ptr<GPUImageAlphaBlendFilter> blendFilter_;
  std::shared_ptr<GPUImageView> gpuImageView_;
  CameraError cameraError_;
  std::atomic<PixelFormat> outputPixelFormat_{PixelFormat::bgra};

  // Video processing queue.
  std::optional<VideoSize> directSize_;  // none: every frame is drawn
  std::optional<bool> gpuYuv_;           // decided on the first picture that needs it
  std::unique_ptr<GPUImageYUVConverter> converter_;
  Subscription subjectArea_;
  Subscription lifecycle_;
};

}  // namespace oxelo
