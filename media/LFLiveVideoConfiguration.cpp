#include "media/LFLiveVideoConfiguration.h"

#include <algorithm>
#include <cmath>

#include "media/SessionPresetProbe.h"
#include "platform/camera/CameraSystem.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"

namespace oxelo {

namespace {

uint64_t cut(double value) { return value <= 0 ? 0 : static_cast<uint64_t>(value); }

// The bit rate of a size before the codec and the frame rate count: pixels
// times the quality's factor, then less for the large sizes.
uint64_t baseBitRate(uint64_t quality, VideoSize size) {
  static constexpr double kFactor[] = {2.0, 5.0, 10.0};
  if (quality > 2) return 0;
  uint64_t rate = cut(size.width * size.height * kFactor[quality]);
  double longer = std::max(size.width, size.height);
  if (longer > 2560) return rate >> 2;
  if (longer > 1920) return rate / 3;
  if (longer == 1920) return rate >> 1;
  return rate;
}

}  // namespace

std::shared_ptr<LFLiveVideoConfiguration> LFLiveVideoConfiguration::defaultConfiguration() {
  return defaultConfigurationForQuality(1);
}

std::shared_ptr<LFLiveVideoConfiguration> LFLiveVideoConfiguration::defaultConfigurationForQuality(
    uint64_t quality) {
  return defaultConfigurationForQualityOutputImageOrientation(quality, 3);
}

std::shared_ptr<LFLiveVideoConfiguration>
LFLiveVideoConfiguration::defaultConfigurationForQualityOutputImageOrientation(
    uint64_t quality, int64_t outputImageOrientation) {
  return defaultConfigurationForQualityPresetFPSOutputImageOrientation(quality, 1, 25,
                                                                       outputImageOrientation);
}

std::shared_ptr<LFLiveVideoConfiguration>
LFLiveVideoConfiguration::defaultConfigurationForQualityPresetFPSOutputImageOrientation(
    uint64_t quality, LFLiveVideoSessionPreset preset, int64_t fps,
    int64_t outputImageOrientation) {
  auto c = std::make_shared<LFLiveVideoConfiguration>();
  c->setSessionPreset(c->supportSessionPreset(preset));

  VideoSize size = portraitSizeOfPreset(c->sessionPreset());
  c->setOutputImageOrientation(outputImageOrientation);
  if (c->landscape()) std::swap(size.width, size.height);
  c->setVideoSize(size);

  uint64_t bitRate = baseBitRate(quality, size);
  auto defaults = UserDefaults::standard();
  if (defaults && defaults->integerForKey(keys::videoEncoder) == 1) bitRate = cut(bitRate * 0.6);
  if (fps != 25) {
    double factor = static_cast<double>(fps) / 25.0;
    bitRate = cut(static_cast<double>(bitRate) * factor);
  }
  c->setVideoBitRate(bitRate);
  c->setVideoMaxBitRate(cut(static_cast<double>(bitRate) * 1.2));
  c->setVideoMinBitRate(cut(static_cast<double>(bitRate) * 0.2));

  uint64_t rate = fps < 0 ? 0 : static_cast<uint64_t>(fps);
  c->setVideoFrameRate(rate);
  c->setVideoMaxFrameRate(rate);
  c->setVideoMinFrameRate(rate / 2);
  c->setVideoMaxKeyframeInterval(rate);
  return c;
}

void LFLiveVideoConfiguration::setVideoMaxFrameRate(uint64_t value) {
  if (value < videoFrameRate_) return;
  videoMaxFrameRate_ = value;
}

void LFLiveVideoConfiguration::setVideoMinFrameRate(uint64_t value) {
  if (value > videoFrameRate_) return;
  videoMinFrameRate_ = value;
}

void LFLiveVideoConfiguration::setVideoMaxBitRate(uint64_t value) {
  if (value < videoBitRate_) return;
  videoMaxBitRate_ = value;
}

void LFLiveVideoConfiguration::setVideoMinBitRate(uint64_t value) {
  if (value > videoBitRate_) return;
  videoMinBitRate_ = value;
}

void LFLiveVideoConfiguration::setSessionPreset(LFLiveVideoSessionPreset preset) {
  sessionPreset_ = preset;
  sessionPreset_ = supportSessionPreset(preset);
}

LFLiveVideoSessionPreset LFLiveVideoConfiguration::supportSessionPreset(
    LFLiveVideoSessionPreset preset) const {
  auto defaults = UserDefaults::standard();
  long long backCameraType = defaults ? defaults->integerForKey(keys::backCameraType) : 0;
  auto camera = probeBackCamera(backCameraType, CameraSystem::current());
  LFLiveVideoSessionPreset value = preset;
  while (true) {
    if (canSetSessionPreset(camera.get(), capturePresetOfPreset(value))) return value;
    if (value == 0) return 0;
    // Every value above the table shares the capture preset of 1.
    value = value > kLFLiveVideoSessionPresetLast ? kLFLiveVideoSessionPresetLast : value - 1;
  }
}

VideoSize LFLiveVideoConfiguration::videoSize() const {
  return videoSizeRespectingAspectRatio_ ? aspectRatioVideoSize() : videoSize_;
}

VideoSize LFLiveVideoConfiguration::captureOutVideoSize() const {
  VideoSize size = portraitSizeOfPreset(sessionPreset_);
  if (landscape()) std::swap(size.width, size.height);
  return size;
}

VideoSize LFLiveVideoConfiguration::aspectRatioVideoSize() const {
  VideoSize aspect = captureOutVideoSize();
  VideoSize bounds = videoSize_;
  if (aspect.width <= 0 || aspect.height <= 0) return {0, 0};
  double scale = std::min(bounds.width / aspect.width, bounds.height / aspect.height);
  auto even = [](double side) {
    return static_cast<double>(static_cast<int64_t>(std::ceil(side)) & ~int64_t{1});
  };
  return {even(aspect.width * scale), even(aspect.height * scale)};
}

}  // namespace oxelo
