#pragma once

#include <string>

#include "filters/GPUImageGaussianBlurFilter.h"

namespace oxelo {

// The Gaussian blur of the red channel alone, written to red, green and blue
// with alpha 1.0: for pictures that carry one value per pixel. As
// GPUImageGaussianBlurFilter otherwise.
class GPUImageSingleComponentGaussianBlurFilter : public GPUImageGaussianBlurFilter {
 public:
  GPUImageSingleComponentGaussianBlurFilter();

  static std::string vertexShaderForOptimizedBlur(unsigned radius, double sigma);
  static std::string fragmentShaderForOptimizedBlur(unsigned radius, double sigma);

 protected:
  std::string vertexShaderFor(unsigned radius, double sigma) const override;
  std::string fragmentShaderFor(unsigned radius, double sigma) const override;
};

}  // namespace oxelo
