#pragma once

#include "filters/GPUImageFilter.h"

namespace oxelo {

// Thins the edges of a gradient picture (length in red, direction in green
// and blue as GPUImageDirectionalSobelEdgeDetectionFilter gives it): a pixel
// keeps its strength only if neither neighbour along the gradient is
// stronger, scaled by smoothstep(lower, upper, length); the result goes to
// red, green and blue. Thresholds 0.1 and 0.5 by default; the setters may be
// called from any thread (the texel setters wait for the video processing
// queue). Video processing queue otherwise.
class GPUImageDirectionalNonMaximumSuppressionFilter : public GPUImageFilter {
 public:
  GPUImageDirectionalNonMaximumSuppressionFilter();

  void setInputSize(GPUSize size, int index) override;
  void setupFilterForSize(GPUSize size);
  void setTexelWidth(double width);
  void setTexelHeight(double height);
  void setUpperThreshold(double threshold);
  void setLowerThreshold(double threshold);
  double upperThreshold() const { return upperThreshold_; }
  double lowerThreshold() const { return lowerThreshold_; }

 private:
  double texelWidth_ = 0;
  double texelHeight_ = 0;
  bool hasOverriddenImageSizeFactor_ = false;
  double upperThreshold_ = 0.5;
  double lowerThreshold_ = 0.1;
  int texelWidthUniform_ = -1;
  int texelHeightUniform_ = -1;
  int upperThresholdUniform_ = -1;
  int lowerThresholdUniform_ = -1;
};

}  // namespace oxelo
