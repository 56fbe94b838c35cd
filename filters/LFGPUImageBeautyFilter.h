#pragma once

#include "filters/GPUImageFilter.h"

namespace oxelo {

// Skin smoothing in one pass at high precision: a high pass of the green
// channel around each pixel (24 samples, two pixels per step), sharpened by
// hard light, is taken off where the picture is bright, then the result is
// lifted, blended back with screen, lighten and soft light, saturated a
// little and given the brightness offset. Beauty level b and tone level t
// (0.5 each by default) give the uniform params = (1 - 0.6 b, 1 - 0.3 b,
// 0.1 + 0.3 t, 0.1 + 0.3 t); a tone level takes effect only with the next
// beauty level. Bright level l gives brightness 0.6 (l - 0.5). Setters may
// be called from any thread; frames run on the video processing queue.
class LFGPUImageBeautyFilter : public GPUImageFilter {
 public:
  LFGPUImageBeautyFilter();

  void setBeautyLevel(double level);
  double beautyLevel() const { return beautyLevel_; }
  void setBrightLevel(double level);
  double brightLevel() const { return brightLevel_; }
  void setToneLevel(double level) { toneLevel_ = level; }
  double toneLevel() const { return toneLevel_; }
  void setParams(double beauty, double tone);

  void setInputSize(GPUSize size, int index) override;

 private:
  double beautyLevel_ = 0.5;
  double brightLevel_ = 0.5;
  double toneLevel_ = 0.5;
  int paramsUniform_ = -1;
  int brightnessUniform_ = -1;
  int singleStepOffsetUniform_ = -1;
  GPUSize stepFor_;  // the input size the sampling step was set for
};

}  // namespace oxelo
