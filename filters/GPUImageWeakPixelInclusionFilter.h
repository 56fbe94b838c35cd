#pragma once

#include "filters/GPUImage3x3TextureSamplingFilter.h"

namespace oxelo {

// Keeps an edge pixel, at full white, when it is not black and the red
// channels of its 3 by 3 neighbourhood (itself included) add up to 1.5 or
// more; every other pixel becomes black. Video processing queue, as
// GPUImageFilter.
class GPUImageWeakPixelInclusionFilter : public GPUImage3x3TextureSamplingFilter {
 public:
  GPUImageWeakPixelInclusionFilter();
};

}  // namespace oxelo
