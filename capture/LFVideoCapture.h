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
  void setBeautyMethod(int64_t method) { beautyMethod_ = method; }
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

  // Life cycle and orientation: the application going inactive, coming back,
  // and the interface turning to orientation `orientation`.
  void willEnterBackground();
  void willEnterForeground();
  void statusBarChanged(int64_t orientation);

  std::shared_ptr<GPUImageVideoCamera> videoCamera() const { return videoCamera_; }
  std::shared_ptr<GPUImageView> gpuImageView() const { return gpuImageView_; }
  std::shared_ptr<GPUImageCropFilter> cropFilter() const { return cropfilter_; }
  std::shared_ptr<GPUImageFilter> filter() const { return filter_; }
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
  std::weak_ptr<LFVideoCaptureDelegate> delegate_;  // video processing queue
  std::weak_ptr<LFVideoCaptureViewDelegate> captureDelegate_;

  bool running_ = false;
  bool beautyFace_ = false;
  int64_t beautyMethod_ = 0;
  bool mirror_ = true;
  bool autoRotate_ = false;
  std::atomic<bool> isSampleBT601_{true};
  bool attachColorInfo_ = false;

  std::shared_ptr<GPUImageVideoCamera> videoCamera_;
  std::shared_ptr<GPUImageFilter> filter_;
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
