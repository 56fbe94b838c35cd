#pragma once

#include "filters/GPUImageTwoInputFilter.h"

namespace oxelo {

// The last step of the skin smoothing: input 0 is the smoothed picture,
// input 1 the edge map, input 2 the original. Where the original looks like
// skin and there is no edge, the result lies between the original and the
// smoothed picture (at the original for intensity 1.0, halfway for 0.5, the
// default); elsewhere it is the original. Then a log curve lifts the middle
// tones of red, green and blue. setIntensity() may be called from any thread.
class GPUImageCombinationFilter : public GPUImageThreeInputFilter {
 public:
  GPUImageCombinationFilter();

  void setIntensity(double intensity);
  double intensity() const { return intensity_; }

 private:
  double intensity_ = 0.5;
  int smoothDegreeUniform_ = -1;
};

}  // namespace oxelo
