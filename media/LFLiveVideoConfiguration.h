#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/LFLiveVideoSessionPreset.h"

namespace oxelo {

// Every capture and encoding number of the video side of a live session.
// Built once on the main queue from the settings (ConfigurationFromSettings)
// before capture starts; shared by capture, the encoder, the session and the
// stream socket, which read it. Afterwards only videoFrameRate changes (the
// session writes the rate the camera reports). No lock.
class LFLiveVideoConfiguration {
 public:
  // Each forwards to the next with the value in brackets:
  // quality [1] -> orientation [3] -> preset [1] and 25 frames per second.
  static std::shared_ptr<LFLiveVideoConfiguration> defaultConfiguration();
  static std::shared_ptr<LFLiveVideoConfiguration> defaultConfigurationForQuality(uint64_t quality);
  static std::shared_ptr<LFLiveVideoConfiguration>
  defaultConfigurationForQualityOutputImageOrientation(uint64_t quality,
                                                       int64_t outputImageOrientation);
  // Builds the record: probes the preset against the back camera
  // (CameraSystem::current(), setting `backCameraType`), takes its size,
  // turned for landscape, and works out the bit rates from the quality
  // (0 low, 1 medium, 2 high; another value leaves them at 0), the size, the
  // setting `videoEncoder` (1, HEVC, takes 0.6 of the rate) and the frame
  // rate, and the frame rates from `fps`.
  static std::shared_ptr<LFLiveVideoConfiguration>
  defaultConfigurationForQualityPresetFPSOutputImageOrientation(uint64_t quality,
                                                                LFLiveVideoSessionPreset preset,
                                                                int64_t fps,
                                                                int64_t outputImageOrientation);

  bool videoSizeRespectingAspectRatio() const { return videoSizeRespectingAspectRatio_; }
  void setVideoSizeRespectingAspectRatio(bool value) { videoSizeRespectingAspectRatio_ = value; }
  bool autorotate() const { return autorotate_; }
  void setAutorotate(bool value) { autorotate_ = value; }
  // 1 portrait, 2 portrait upside down, 3 landscape right, 4 landscape left.
  int64_t outputImageOrientation() const { return outputImageOrientation_; }
  void setOutputImageOrientation(int64_t value) { outputImageOrientation_ = value; }
  bool landscape() const { return outputImageOrientation_ == 3 || outputImageOrientation_ == 4; }

  // Frame rates: asked of the encoder, of the camera, and the lower bound.
  uint64_t videoFrameRate() const { return videoFrameRate_; }
  void setVideoFrameRate(uint64_t value) { videoFrameRate_ = value; }
  uint64_t videoMaxFrameRate() const { return videoMaxFrameRate_; }
  // Keeps the old value when `value` is below videoFrameRate().
  void setVideoMaxFrameRate(uint64_t value);
  uint64_t videoMinFrameRate() const { return videoMinFrameRate_; }
  // Keeps the old value when `value` is above videoFrameRate().
  void setVideoMinFrameRate(uint64_t value);
  uint64_t videoMaxKeyframeInterval() const { return videoMaxKeyframeInterval_; }
  void setVideoMaxKeyframeInterval(uint64_t value) { videoMaxKeyframeInterval_ = value; }

  // Bit rates in bits per second: the average and the bounds of adaptation.
  uint64_t videoBitRate() const { return videoBitRate_; }
  void setVideoBitRate(uint64_t value) { videoBitRate_ = value; }
  uint64_t videoMaxBitRate() const { return videoMaxBitRate_; }
  // Keeps the old value when `value` is below videoBitRate().
  void setVideoMaxBitRate(uint64_t value);
  uint64_t videoMinBitRate() const { return videoMinBitRate_; }
  // Keeps the old value when `value` is above videoBitRate().
  void setVideoMinBitRate(uint64_t value);

  LFLiveVideoSessionPreset sessionPreset() const { return sessionPreset_; }
  // Stores the value, then the one supportSessionPreset() gives for it.
  void setSessionPreset(LFLiveVideoSessionPreset preset);
  // The capture preset text of sessionPreset().
  std::string avSessionPreset() const { return capturePresetOfPreset(sessionPreset_); }
  static std::string avSessionPresetForLFLiveVideoSessionPreset(LFLiveVideoSessionPreset preset) {
    return capturePresetOfPreset(preset);
  }
  // The largest value not above `preset` whose capture preset the back camera
  // of the selected type can deliver; 0 when none is, or with no camera.
  LFLiveVideoSessionPreset supportSessionPreset(LFLiveVideoSessionPreset preset) const;

  // The output size, turned to match the orientation; aspectRatioVideoSize()
  // instead while videoSizeRespectingAspectRatio() is set.
  VideoSize videoSize() const;
  void setVideoSize(VideoSize size) { videoSize_ = size; }
  // The table size of sessionPreset(), long side first when landscape.
  VideoSize captureOutVideoSize() const;
  // The largest rectangle of captureOutVideoSize()'s proportions inside the
  // stored videoSize, each side rounded up and then made even.
  VideoSize aspectRatioVideoSize() const;

 private:
  bool videoSizeRespectingAspectRatio_ = false;
  bool autorotate_ = false;
  int64_t outputImageOrientation_ = 0;
  uint64_t videoFrameRate_ = 0;
  uint64_t videoMaxFrameRate_ = 0;
  uint64_t videoMinFrameRate_ = 0;
  uint64_t videoMaxKeyframeInterval_ = 0;
  uint64_t videoBitRate_ = 0;
  uint64_t videoMaxBitRate_ = 0;
  uint64_t videoMinBitRate_ = 0;
  LFLiveVideoSessionPreset sessionPreset_ = 0;
  VideoSize videoSize_;
};

}  // namespace oxelo
