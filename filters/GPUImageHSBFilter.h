#pragma once

#include "filters/GPUImageColorMatrixFilter.h"

namespace oxelo {

// A colour matrix built up from adjustments to an inner matrix, which starts
// as the identity; after each change its transpose becomes the colour
// matrix. Only the brightness adjustment is offered: red, green and blue
// times the factor, alpha kept. Any thread, as the colour matrix setters.
class GPUImageHSBFilter : public GPUImageColorMatrixFilter {
 public:
  GPUImageHSBFilter();

  void reset();
  void adjustBrightness(float factor);

 private:
  void updateColorMatrix();

  float matrix_[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
};

}  // namespace oxelo
