#include "capture/LFVideoCapture.h"

#include <algorithm>
#include <typeinfo>

#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/LFGPUImageEmptyFilter.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/device/AppLifecycle.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/log/Log.h"

namespace oxelo {

ActiveFormatChoice chooseActiveFormat(const std::vector<CaptureDeviceFormatPtr>& formats,
                                      int32_t width, int32_t height, double frameRate) {
  ActiveFormatChoice choice;
  for (const auto& format : formats) {
    if (format->mediaType != AVMediaTypeVideo || format->mediaSubType != kPixelFormat420FullRange)
      continue;
    const int32_t w = format->width, h = format->height;
    if (w < width || h < height) continue;
    if (w == width && h == height) {
      choice.exact = true;
    } else if (!(static_cast<double>(h) / w == static_cast<double>(height) / width ||
                 width > 1920)) {
      continue;
    }
    for (const auto& range : format->videoSupportedFrameRateRanges) {
      if (range.minFrameRate <= frameRate && range.maxFrameRate >= frameRate) {
        choice.winner = format;
        return choice;
      }
      if (range.maxFrameRate > choice.best) {
        choice.best = range.maxFrameRate;
        choice.fallback = format;
      }
    }
  }
  return choice;
}

std::optional<CropRegion> cropRegionForPreset(LFLiveVideoSessionPreset preset, VideoSize videoSize,
                                              int32_t formatWidth, int32_t formatHeight,
                                              bool landscape) {
  if (preset != 0 && preset != 3 && preset != 5 && preset != 7) return std::nullopt;
  if (formatWidth < 1 || formatHeight < 1) return std::nullopt;
  const double longer = std::max(videoSize.width, videoSize.height);
  const double shorter = std::min(videoSize.width, videoSize.height);
  if (shorter / longer == static_cast<double>(formatHeight) / formatWidth) return std::nullopt;
  const float a = static_cast<float>(formatWidth - longer) / static_cast<float>(formatWidth);
  const float b = static_cast<float>(formatHeight - shorter) / static_cast<float>(formatHeight);
  const float mx = landscape ? a : b;
  const float my = landscape ? b : a;
  return CropRegion{mx / 2.0, my / 2.0, 1.0 - mx, 1.0 - my};
}

std::shared_ptr<LFVideoCapture> LFVideoCapture::create(
    std::shared_ptr<LFLiveVideoConfiguration> configuration) {
  if (!configuration) return nullptr;
  std::shared_ptr<LFVideoCapture> capture(new LFVideoCapture(std::move(configuration)));
  if (auto lifecycle = AppLifecycle::shared()) {
    capture->lifecycle_ =
        lifecycle->addListener([weak = capture->weak_from_this()](LifecycleEvent event) {
          auto self = weak.lock();
          if (!self) return;
          if (event == LifecycleEvent::willResignActive) self->willEnterBackground();
          if (event == LifecycleEvent::didBecomeActive) self->willEnterForeground();
        });
  }
  auto defaults = UserDefaults::standard();
  capture->autoRotate_ = capture->configuration_->autorotate();
  capture->isSampleBT601_ = true;
  capture->attachColorInfo_ =
      defaults && defaults->stringForKey(keys::colorspace).value_or("") == "Auto";
  // The camera exists as soon as the capture does; it runs only with setRunning().
  capture->setMirror(true);
  return capture;
}

LFVideoCapture::LFVideoCapture(std::shared_ptr<LFLiveVideoConfiguration> configuration)
    : configuration_(std::move(configuration)) {}

LFVideoCapture::~LFVideoCapture() {
  lifecycle_.reset();
  subjectArea_.reset();
  if (videoCamera_) {
    videoCamera_->stopCameraCapture();
    videoCamera_->removeAllTargets();
  }
  if (output_) output_->setFrameProcessingCompletionBlock(nullptr);
  if (auto defaults = UserDefaults::standard()) {
    defaults->setBool(keys::isCamBT601, isSampleBT601_);
    defaults->synchronize();
  }
}

void LFVideoCapture::createCamera() {
  if (videoCamera_) return;
  auto defaults = UserDefaults::standard();
  const AVCaptureDevicePosition position = defaults && defaults->boolForKey(keys::frontCam)
                                               ? AVCaptureDevicePositionFront
                                               : AVCaptureDevicePositionBack;
  CameraError error;
  videoCamera_ =
      GPUImageVideoCamera::create(configuration_->avSessionPreset(), position, {}, &error);
  if (!videoCamera_)
    videoCamera_ = GPUImageVideoCamera::create(AVCaptureSessionPresetHigh, position, {}, &error);
  if (!videoCamera_) {
    oxlog("Video capture: no camera: {}", error.message);
    cameraError_ = std::move(error);
    return;
  }
  videoCamera_->setOutputImageOrientation(configuration_->outputImageOrientation());
  videoCamera_->setHorizontallyMirrorFrontFacingCamera(false);
  videoCamera_->setHorizontallyMirrorRearFacingCamera(false);
  videoCamera_->setDelegate(weak_from_this());
  auto device = videoCamera_->inputCamera();
  if (auto format = device->activeFormat()) {
    setVideoSize(format->width, format->height,
                 static_cast<double>(configuration_->videoMaxFrameRate()), device);
  }
  initCaptureDevice(device);
  observeSubjectArea(device);
}

void LFVideoCapture::observeSubjectArea(const std::shared_ptr<CaptureDevice>& device) {
  // The camera reports on its own thread; the controls belong to the main queue.
  subjectArea_ = device->observeSubjectAreaDidChange([weak = weak_from_this()] {
    postWeak(*MainQueue::get(), weak, [](LFVideoCapture& self) { self.subjectAreaDidChange(); });
  });
}

std::shared_ptr<CaptureDevice> LFVideoCapture::device() const {
  return videoCamera_ ? videoCamera_->inputCamera() : nullptr;
}

AVCaptureDevicePosition LFVideoCapture::captureDevicePosition() const {
  return videoCamera_ ? videoCamera_->cameraPosition() : AVCaptureDevicePositionUnspecified;
}

std::string LFVideoCapture::captureDeviceType() const {
  auto d = device();
  return d ? d->deviceType() : std::string();
}

int32_t LFVideoCapture::videoFrameRate() const {
  return videoCamera_ ? videoCamera_->frameRate() : 0;
}

void LFVideoCapture::setDelegate(std::weak_ptr<LFVideoCaptureDelegate> delegate) {
  runSynchronouslyOnVideoProcessingQueue([&] { delegate_ = std::move(delegate); });
}

bool LFVideoCapture::setVideoSize(int32_t width, int32_t height, double frameRate,
                                  const std::shared_ptr<CaptureDevice>& device) {
  if (!(frameRate > 0) || !device || width < 1 || height < 1) return false;
  const ActiveFormatChoice choice = chooseActiveFormat(device->formats(), width, height, frameRate);
  const CaptureDeviceFormatPtr chosen = choice.chosen();
  if (chosen && chosen != device->activeFormat() && device->lockForConfiguration()) {
    device->setActiveFormat(chosen);
    device->unlockForConfiguration();
    oxlog("Set camera active format to: {}", chosen->description());
  }
  if (videoCamera_) {
    videoCamera_->setFrameRate(choice.winner ? static_cast<int32_t>(frameRate)
                                             : static_cast<int32_t>(choice.best));
  }
  return choice.winner && choice.exact;
}

void LFVideoCapture::initCaptureDevice(const std::shared_ptr<CaptureDevice>& device) {
  if (!device || !device->lockForConfiguration()) return;
  auto defaults = UserDefaults::standard();
  auto flag = [&](const char* key) { return defaults && defaults->boolForKey(key); };
  const auto& parts = device->constituentDeviceTypes();
  const auto& switchOver = device->virtualDeviceSwitchOverVideoZoomFactors();
  if (device->isVirtualDevice() && parts.size() >= 2 &&
      parts.front() == AVCaptureDeviceTypeBuiltInUltraWideCamera && !switchOver.empty()) {
    device->setVideoZoomFactor(switchOver.front());
  }
  if (device->isLowLightBoostSupported())
    device->setAutomaticallyEnablesLowLightBoostWhenAvailable(flag(keys::lowLightBoost));
  if (device->isSmoothAutoFocusSupported())
    device->setSmoothAutoFocusEnabled(flag(keys::smoothAutoFocus));
  if (device->isExposureModeSupported(AVCaptureExposureModeAutoExpose))
    device->setAutomaticallyAdjustsFaceDrivenAutoExposureEnabled(flag(keys::faceDrivenAEAF));
  if (device->isFocusModeSupported(AVCaptureFocusModeAutoFocus))
    device->setAutomaticallyAdjustsFaceDrivenAutoFocusEnabled(flag(keys::faceDrivenAEAF));
  const std::string hdr = defaults ? defaults->stringForKey(keys::hdr).value_or("") : "";
  if (hdr == "Auto") {
    device->setAutomaticallyAdjustsVideoHDREnabled(true);
  } else {
    device->setAutomaticallyAdjustsVideoHDREnabled(false);
    auto format = device->activeFormat();
    if (format && format->isVideoHDRSupported()) device->setVideoHDREnabled(hdr == "On");
  }
  device->unlockForConfiguration();
}

void LFVideoCapture::setRunning(bool running) {
  if (running_ == running) return;
  running_ = running;
  if (!videoCamera_) return;
  if (running) {
    reloadFilter();
    cameraError_ = videoCamera_->startCameraCapture();
    if (cameraError_) reportCameraFailure(cameraError_);
  } else {
    videoCamera_->stopCameraCapture();
  }
}

void LFVideoCapture::setBeautyFace(bool beautyFace) {
  beautyFace_ = beautyFace;
  if (!beautyFace) beautyMethod_ = 0;
  if (running_) reloadFilter();
}

void LFVideoCapture::setBeautyLevel(double level) {
  beautyLevel_ = level;
  if (beautyFilter_) beautyFilter_->setBeautyLevel(level);
}

void LFVideoCapture::setBrightLevel(double level) {
  brightLevel_ = level;
  if (beautyFilter_) beautyFilter_->setBrightLevel(level);
}

void LFVideoCapture::setMirror(bool mirror) {
  mirror_ = mirror;
  createCamera();
  reloadMirror();
}

void LFVideoCapture::reloadMirror() {
  if (!videoCamera_) return;
  if (videoCamera_->cameraPosition() == AVCaptureDevicePositionFront) {
    videoCamera_->setHorizontallyMirrorFrontFacingCamera(mirror_);
  } else {
    videoCamera_->setHorizontallyMirrorRearFacingCamera(mirror_);
  }
}

std::shared_ptr<GPUImageAlphaBlendFilter> LFVideoCapture::blendFilter() {
  if (!blendFilter_) {
    blendFilter_ = std::make_shared<GPUImageAlphaBlendFilter>();
    blendFilter_->setMix(1.0);
    blendFilter_->disableSecondFrameCheck();
  }
  return blendFilter_;
}

void LFVideoCapture::setPreView(std::shared_ptr<GPUImageView> view) {
  if (view == gpuImageView_) return;
  if (blendFilter_) {
    blendFilter_->removeAllTargets();
    if (filter_) filter_->removeTarget(blendFilter_);
  }
  gpuImageView_ = std::move(view);
  if (output_) attachPreview();
  updateDirectPath();
}

void LFVideoCapture::attachPreview() {
  if (!gpuImageView_ || !filter_) return;
  filter_->addTarget(blendFilter());
  blendFilter_->addTarget(gpuImageView_);
}

void LFVideoCapture::updateDirectPath() {
  // The empty filter exactly: a subclass of it may draw something of its own.
  const bool identity = output_ && filter_ && typeid(*filter_) == typeid(LFGPUImageEmptyFilter) &&
                        !cropfilter_ && !gpuImageView_;
  std::optional<VideoSize> size;
  if (identity) size = configuration_->videoSize();
  runSynchronouslyOnVideoProcessingQueue([&] { directSize_ = size; });
}

void LFVideoCapture::reloadFilter() {
  if (!videoCamera_) return;
  if (filter_) filter_->removeAllTargets();
  blendFilter()->removeAllTargets();
  videoCamera_->removeAllTargets();
  if (output_) {
    output_->removeAllTargets();
    output_->setFrameProcessingCompletionBlock(nullptr);
  }
  if (cropfilter_) cropfilter_->removeAllTargets();

  output_ = std::make_shared<LFGPUImageEmptyFilter>();
  // A new stage starts at its own levels, not at the stored ones.
  beautyFilter_.reset();
  beautifyFilter_.reset();
  if (!beautyFace_) {
    auto empty = std::make_shared<LFGPUImageEmptyFilter>();
    filter_ = empty;
    filterInput_ = empty;
  } else if (beautyMethod_ == 1) {
    beautifyFilter_ = std::make_shared<LFGPUImageBeautifyFilter>();
    filter_ = beautifyFilter_;
    filterInput_ = beautifyFilter_;
  } else {
    beautyFilter_ = std::make_shared<LFGPUImageBeautyFilter>();
    filter_ = beautyFilter_;
    filterInput_ = beautyFilter_;
  }
  reloadMirror();

  GPUImageOutput* source = videoCamera_.get();
  cropfilter_.reset();
  const VideoSize videoSize = configuration_->videoSize();
  auto format = device() ? device()->activeFormat() : nullptr;
  if (format) {
    if (auto region = cropRegionForPreset(configuration_->sessionPreset(), videoSize, format->width,
                                          format->height, configuration_->landscape())) {
      cropfilter_ = std::make_shared<GPUImageCropFilter>(*region);
      videoCamera_->addTarget(cropfilter_);
      source = cropfilter_.get();
    }
  }
  blendFilter_->setMix(0.0);
  source->addTarget(filterInput_);
  attachPreview();
  filter_->addTarget(output_);
  const GPUSize size{videoSize.width, videoSize.height};
  filter_->forceProcessingAtSize(size);
  output_->forceProcessingAtSize(size);
  blendFilter_->forceProcessingAtSize(size);
  output_->setFrameProcessingCompletionBlock(
      [weak = weak_from_this()](GPUImageOutput* node, double time) {
        if (auto self = weak.lock()) self->processVideo(*node, time);
      });
  updateDirectPath();
}

void LFVideoCapture::processVideo(GPUImageOutput& output, double time) {
  auto framebuffer = output.framebufferForOutput();
  if (!framebuffer || delegate_.expired()) return;
  std::shared_ptr<PixelBuffer> buffer;
  const PixelFormat format = outputPixelFormat_;
  if (format != PixelFormat::bgra) {
    if (!gpuYuv_) gpuYuv_ = GPUImageYUVConverter::preferredOnThisMachine();
    if (*gpuYuv_) {
      if (!converter_) converter_ = std::make_unique<GPUImageYUVConverter>();
      buffer = converter_->convert(*framebuffer, format,
                                   isSampleBT601_ ? YuvMatrix::bt601 : YuvMatrix::bt709,
                                   /*fullRange=*/false);
    }
  }
  // Also a size the conversion cannot lay out goes as BGRA.
  if (!buffer) buffer = framebuffer->pixelBuffer();
  if (!buffer) return;
  buffer->setPresentationTime(time);
  deliver(buffer);
}

void LFVideoCapture::deliver(const std::shared_ptr<PixelBuffer>& buffer) {
  auto delegate = delegate_.lock();
  if (!delegate) return;
  LFVideoColourTags tags{isSampleBT601_};
  delegate->captureOutput(*this, buffer, attachColorInfo_ ? &tags : nullptr);
}

void LFVideoCapture::willOutputSampleBuffer(const CameraFramePtr& frame) {
  // Every camera frame carries its matrix.
  isSampleBT601_ = frame->matrix == ColourMatrix::bt601;
}

bool LFVideoCapture::outputFrameWithoutDrawing(const CameraFramePtr& frame) {
  if (!directSize_ || frame->width() != directSize_->width ||
      frame->height() != directSize_->height)
    return false;
  auto buffer = PixelBuffer::wrapYuv(
      PixelFormat::nv12, frame->width(), frame->height(),
      frame->matrix == ColourMatrix::bt601 ? YuvMatrix::bt601 : YuvMatrix::bt709,
      frame->range == ColourRange::full, {frame->data(0), frame->data(1), nullptr},
      {static_cast<size_t>(frame->stride(0)), static_cast<size_t>(frame->stride(1)), 0}, frame);
  buffer->setPresentationTime(frame->presentationTime);
  deliver(buffer);
  return true;
}

void LFVideoCapture::cameraDidFail(const CameraError& error) {
  oxlog("Video capture: the camera stopped: {}", error.message);
  reportCameraFailure(error);
}

void LFVideoCapture::reportCameraFailure(const CameraError& error) {
  postWeak(*MainQueue::get(), weak_from_this(), [error](LFVideoCapture& self) {
    self.cameraError_ = error;
    if (auto delegate = self.captureDelegate_.lock()) delegate->videoDeviceDidFail(error);
  });
}

template <typename Select>
void LFVideoCapture::switchCamera(Select select) {
  if (!videoCamera_) return;
  if (auto delegate = captureDelegate_.lock()) delegate->videoDeviceWillChange();
  auto old = device();
  subjectArea_.reset();
  int32_t width = 0, height = 0;
  if (auto format = old ? old->activeFormat() : nullptr) {
    width = format->width;
    height = format->height;
  }
  select(*videoCamera_);
  auto now = device();
  if (now && now != old) {
    // The locks belong to the camera they were set on; the new one keeps its
    // own automatic modes.
    setAfLock(false);
    setAeLock(false);
    setAwbLock(false);
    setVideoSize(width, height, static_cast<double>(configuration_->videoMaxFrameRate()), now);
    initCaptureDevice(now);
    observeSubjectArea(now);
    reloadMirror();
  }
  if (auto delegate = captureDelegate_.lock()) delegate->videoDeviceDidChange();
}

void LFVideoCapture::setCameraByIndex(int64_t index) {
  switchCamera([index](GPUImageVideoCamera& camera) { camera.selectCameraByIndex(index); });
}

void LFVideoCapture::setCameraByPosition(AVCaptureDevicePosition position,
                                         const std::string& deviceType) {
  switchCamera(
      [&](GPUImageVideoCamera& camera) { camera.selectCameraByPosition(position, deviceType); });
}

void LFVideoCapture::setCaptureDevicePosition(AVCaptureDevicePosition) {
  switchCamera([](GPUImageVideoCamera& camera) { camera.rotateCamera(); });
}

void LFVideoCapture::willEnterBackground() {
  if (videoCamera_) videoCamera_->pauseCameraCapture();
  runSynchronouslyOnVideoProcessingQueue([] {
    if (GPUImageContext::useImageProcessingContext()) GPUImageContext::finish();
  });
}

void LFVideoCapture::willEnterForeground() {
  if (videoCamera_) videoCamera_->resumeCameraCapture();
}

void LFVideoCapture::statusBarChanged(int64_t orientation) {
  if (!videoCamera_ || !configuration_->autorotate() || !autoRotate_) return;
  if (configuration_->landscape()) {
    if (orientation == 3 || orientation == 4) videoCamera_->setOutputImageOrientation(orientation);
  } else if (orientation == 1 || orientation == 2) {
    videoCamera_->setOutputImageOrientation(orientation == 1 ? 2 : 1);
  }
}

}  // namespace oxelo
