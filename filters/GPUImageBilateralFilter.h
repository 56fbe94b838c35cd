#pragma once

#include "filters/GPUImageGaussianBlurFilter.h"

namespace oxelo {

// Edge-keeping smoothing in two passes of 9 fixed taps, four pixels apart:
// each neighbour's weight falls with its colour distance from the centre
// (times the distance normalisation factor, 8.0 by default) and is gone at
// a distance of 1 / factor; the centre always counts with 0.18. The setter
// may be called from any thread. Video processing queue otherwise.
class GPUImageBilateralFilter : public GPUImageGaussianBlurFilter {
 public:
  GPUImageBilateralFilter();

  void setDistanceNormalizationFactor(double factor);
  double distanceNormalizationFactor() const { return distanceNormalizationFactor_; }

 private:
  double distanceNormalizationFactor_ = 8.0;
  int firstDistanceNormalizationFactorUniform_ = -1;
  int secondDistanceNormalizationFactorUniform_ = -1;
};

}  // namespace oxelo
