#pragma once

#include "filters/GPUImageFilter.h"

namespace oxelo {

// Luminance by the weights (0.2125, 0.7154, 0.0721) on red, green and blue;
// alpha stays. Draws nothing while told its input is already monochrome.
// Video processing queue, as GPUImageFilter.
class GPUImageGrayscaleFilter : public GPUImageFilter {
 public:
  GPUImageGrayscaleFilter();

  void newFrameReadyAtTime(double time, int index) override;
};

}  // namespace oxelo
