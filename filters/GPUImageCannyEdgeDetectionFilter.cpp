#include "filters/GPUImageCannyEdgeDetectionFilter.h"

namespace oxelo {

GPUImageCannyEdgeDetectionFilter::GPUImageCannyEdgeDetectionFilter()
    : luminanceFilter_(std::make_shared<GPUImageGrayscaleFilter>()),
      blurFilter_(std::make_shared<GPUImageSingleComponentGaussianBlurFilter>()),
      edgeDetectionFilter_(std::make_shared<GPUImageDirectionalSobelEdgeDetectionFilter>()),
      nonMaximumSuppressionFilter_(
          std::make_shared<GPUImageDirectionalNonMaximumSuppressionFilter>()),
      weakPixelInclusionFilter_(std::make_shared<GPUImageWeakPixelInclusionFilter>()) {
  addFilter(luminanceFilter_);
  addFilter(blurFilter_);
  addFilter(edgeDetectionFilter_);
  addFilter(nonMaximumSuppressionFilter_);
  addFilter(weakPixelInclusionFilter_);
  luminanceFilter_->addTarget(blurFilter_);
  blurFilter_->addTarget(edgeDetectionFilter_);
  edgeDetectionFilter_->addTarget(nonMaximumSuppressionFilter_);
  nonMaximumSuppressionFilter_->addTarget(weakPixelInclusionFilter_);
  setInitialFilters({luminanceFilter_});
  setTerminalFilter(weakPixelInclusionFilter_);
  setBlurRadiusInPixels(2.0);  // the stored value already: the blur stays at R = 4
  setBlurTexelSpacingMultiplier(1.0);
  setUpperThreshold(0.4);
  setLowerThreshold(0.1);
}

}  // namespace oxelo
