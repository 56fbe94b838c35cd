#include "media/VideoSizeCatalogue.h"

#include <algorithm>

#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"

namespace oxelo {

namespace {

VideoSizeEntry fixedRow(int width, int height) { return {width, height, 30, false}; }

}  // namespace

nlohmann::ordered_json VideoSizeEntry::toJson() const {
  nlohmann::ordered_json rate =
      measured ? nlohmann::ordered_json(fps) : nlohmann::ordered_json(static_cast<int64_t>(fps));
  return {{"width", width}, {"height", height}, {"fps", rate}};
}

const char* catalogueBackCameraType(long long backCameraType) {
  switch (backCameraType) {
    case 1:
      return AVCaptureDeviceTypeBuiltInDualCamera;
    case 2:
      return AVCaptureDeviceTypeBuiltInDualWideCamera;
    case 3:
      return AVCaptureDeviceTypeBuiltInTripleCamera;
    default:
      return AVCaptureDeviceTypeBuiltInWideAngleCamera;
  }
}

VideoSizeCatalogue::VideoSizeCatalogue(std::shared_ptr<CameraSystem> cameras)
    : cameras_(std::move(cameras)),
      videoSizes_{fixedRow(640, 360), fixedRow(640, 480)},
      videoFrameRates_{"15", "24", "25", "30"} {}

VideoSizeCatalogue& VideoSizeCatalogue::shared() {
  static VideoSizeCatalogue catalogue;
  return catalogue;
}

double VideoSizeCatalogue::maxSupportedFrameRate(double width, double height,
                                                 const CaptureDevice& device) {
  double best = 0;
  for (const auto& f : device.formats()) {
    if (f->mediaType != AVMediaTypeVideo || f->mediaSubType != kPixelFormat420FullRange) continue;
    if (f->width != width || f->height != height) continue;
    best = std::max(best, f->maxFrameRate());
  }
  return best;
}

void VideoSizeCatalogue::reloadVideoSizes() {
  auto cameras = cameras_ ? cameras_ : CameraSystem::current();
  auto defaults = UserDefaults::standard();
  long long backType = defaults ? defaults->integerForKey(keys::backCameraType) : 0;
  auto back = cameras->defaultDeviceWithDeviceType(catalogueBackCameraType(backType),
                                                   AVMediaTypeVideo, AVCaptureDevicePositionBack);
  auto front = cameras->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                                    AVMediaTypeVideo, AVCaptureDevicePositionFront);

  std::vector<VideoSizeEntry> sizes{fixedRow(640, 360), fixedRow(640, 480)};
  if (back) {
    // The rate at a preset's size: the better camera, and 30 at the least.
    auto measure = [&](const char* preset, int width, int height) {
      double rate = std::max(30.0, maxSupportedFrameRate(width, height, *back));
      if (front && front->supportsAVCaptureSessionPreset(preset))
        rate = std::max(rate, maxSupportedFrameRate(width, height, *front));
      return rate;
    };
    auto measured = [](int width, int height, double fps) {
      return VideoSizeEntry{width, height, fps, true};
    };
    if (back->supportsAVCaptureSessionPreset(AVCaptureSessionPreset640x480)) {
      sizes.pop_back();
      sizes.push_back(measured(640, 480, measure(AVCaptureSessionPreset640x480, 640, 480)));
    }
    if (back->supportsAVCaptureSessionPreset(AVCaptureSessionPresetiFrame960x540)) {
      sizes.push_back(measured(960, 540, measure(AVCaptureSessionPresetiFrame960x540, 960, 540)));
    }
    if (back->supportsAVCaptureSessionPreset(AVCaptureSessionPreset1280x720)) {
      double rate = measure(AVCaptureSessionPreset1280x720, 1280, 720);
      sizes.push_back(measured(800, 600, rate));
      sizes.push_back(measured(1280, 720, rate));
    }
    if (back->supportsAVCaptureSessionPreset(AVCaptureSessionPreset1920x1080)) {
      double rate = measure(AVCaptureSessionPreset1920x1080, 1920, 1080);
      sizes.push_back(measured(1280, 960, rate));
      sizes.push_back(measured(1920, 1080, rate));
    }
    if (back->supportsAVCaptureSessionPreset(AVCaptureSessionPreset3840x2160)) {
      double rate = measure(AVCaptureSessionPreset3840x2160, 3840, 2160);
      sizes.push_back(measured(2560, 1440, rate));
      sizes.push_back(measured(3840, 2160, rate));
    }
  }
  {
    std::lock_guard lock(mutex_);
    videoSizes_ = std::move(sizes);
  }
  reloadVideoFrameRates();
}

void VideoSizeCatalogue::reloadVideoFrameRates() {
  auto defaults = UserDefaults::standard();
  auto index =
      static_cast<unsigned long long>(defaults ? defaults->integerForKey(keys::videoSize) : 0);
  std::lock_guard lock(mutex_);
  std::vector<std::string> rates{"15", "24", "25", "30"};
  if (!videoSizes_.empty()) {
    if (index >= videoSizes_.size()) index = videoSizes_.size() - 1;
    auto f = static_cast<float>(videoSizes_[index].fps);
    if (f >= 50) rates.push_back("50");
    if (f >= 60) rates.push_back("60");
    if (f >= 120) rates.push_back("120");
    if (f > 120) rates.push_back(std::to_string(static_cast<long long>(f)));
  }
  videoFrameRates_ = std::move(rates);
}

std::vector<VideoSizeEntry> VideoSizeCatalogue::videoSizes() const {
  std::lock_guard lock(mutex_);
  return videoSizes_;
}

std::vector<std::string> VideoSizeCatalogue::videoFrameRates() const {
  std::lock_guard lock(mutex_);
  return videoFrameRates_;
}

nlohmann::ordered_json VideoSizeCatalogue::toJson() const {
  std::lock_guard lock(mutex_);
  nlohmann::ordered_json sizes = nlohmann::ordered_json::array();
  for (const auto& s : videoSizes_) sizes.push_back(s.toJson());
  return {{"videoSizes", sizes}, {"videoFrameRates", videoFrameRates_}};
}

void VideoSizeCatalogue::applyStartupSizeRule() {
  reloadVideoSizes();
  if (videoSizes().size() >= 3) return;
  auto defaults = UserDefaults::standard();
  if (!defaults) return;
  defaults->setInteger(keys::videoSize, 1);
  defaults->setInteger(keys::videoWidth, 640);
  defaults->setInteger(keys::videoHeight, 480);
  defaults->synchronize();
}

}  // namespace oxelo
