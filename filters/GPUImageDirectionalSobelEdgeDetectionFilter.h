#pragma once

#include "filters/GPUImage3x3TextureSamplingFilter.h"

namespace oxelo {

// The gradient of the red channel by the Sobel kernels: red carries its
// length, green and blue its direction rounded to one of the eight
// neighbours, as 0, 0.5 or 1 for a step of -1, 0 or +1. Video processing
// queue, as GPUImageFilter.
class GPUImageDirectionalSobelEdgeDetectionFilter : public GPUImage3x3TextureSamplingFilter {
 public:
  GPUImageDirectionalSobelEdgeDetectionFilter();
};

}  // namespace oxelo
