#pragma once

#include <memory>

#include "filters/GPUImageDirectionalNonMaximumSuppressionFilter.h"
#include "filters/GPUImageDirectionalSobelEdgeDetectionFilter.h"
#include "filters/GPUImageFilterGroup.h"
#include "filters/GPUImageGrayscaleFilter.h"
#include "filters/GPUImageSingleComponentGaussianBlurFilter.h"
#include "filters/GPUImageWeakPixelInclusionFilter.h"

namespace oxelo {

// An edge map in five stages, one after the other: luminance, a blur of it,
// the directional gradient, thinning along the gradient with the thresholds
// 0.1 and 0.4, and the inclusion of weak pixels with strong neighbours.
// Edges come out white on black. The properties live in the stages; their
// setters may be called from any thread. Video processing queue otherwise.
class GPUImageCannyEdgeDetectionFilter : public GPUImageFilterGroup {
 public:
  GPUImageCannyEdgeDetectionFilter();

  void setBlurRadiusInPixels(double pixels) { blurFilter_->setBlurRadiusInPixels(pixels); }
  double blurRadiusInPixels() const { return blurFilter_->blurRadiusInPixels(); }
  void setBlurTexelSpacingMultiplier(double multiplier) {
    blurFilter_->setTexelSpacingMultiplier(multiplier);
  }
  double blurTexelSpacingMultiplier() const { return blurFilter_->texelSpacingMultiplier(); }
  void setUpperThreshold(double threshold) {
    nonMaximumSuppressionFilter_->setUpperThreshold(threshold);
  }
  double upperThreshold() const { return nonMaximumSuppressionFilter_->upperThreshold(); }
  void setLowerThreshold(double threshold) {
    nonMaximumSuppressionFilter_->setLowerThreshold(threshold);
  }
  double lowerThreshold() const { return nonMaximumSuppressionFilter_->lowerThreshold(); }

 private:
  std::shared_ptr<GPUImageGrayscaleFilter> luminanceFilter_;
  std::shared_ptr<GPUImageSingleComponentGaussianBlurFilter> blurFilter_;
  std::shared_ptr<GPUImageDirectionalSobelEdgeDetectionFilter> edgeDetectionFilter_;
  std::shared_ptr<GPUImageDirectionalNonMaximumSuppressionFilter> nonMaximumSuppressionFilter_;
  std::shared_ptr<GPUImageWeakPixelInclusionFilter> weakPixelInclusionFilter_;
};

}  // namespace oxelo
