#include "filters/GPUImageSingleComponentGaussianBlurFilter.h"

namespace oxelo {

std::string GPUImageSingleComponentGaussianBlurFilter::vertexShaderForOptimizedBlur(unsigned radius,
                                                                                    double sigma) {
  return GPUImageGaussianBlurFilter::vertexShaderForOptimizedBlur(radius, sigma);
}

std::string GPUImageSingleComponentGaussianBlurFilter::fragmentShaderForOptimizedBlur(
    unsigned radius, double sigma) {
  if (radius == 0) return kGPUImagePassthroughFragmentShaderString;
  return blurFragmentShader(radius, sigma, "float", ".r", "vec4(sum, sum, sum, 1.0)");
}

GPUImageSingleComponentGaussianBlurFilter::GPUImageSingleComponentGaussianBlurFilter()
    : GPUImageGaussianBlurFilter(vertexShaderForOptimizedBlur(4, 2.0),
                                 fragmentShaderForOptimizedBlur(4, 2.0)) {}

std::string GPUImageSingleComponentGaussianBlurFilter::vertexShaderFor(unsigned radius,
                                                                       double sigma) const {
  return vertexShaderForOptimizedBlur(radius, sigma);
}

std::string GPUImageSingleComponentGaussianBlurFilter::fragmentShaderFor(unsigned radius,
                                                                         double sigma) const {
  return fragmentShaderForOptimizedBlur(radius, sigma);
}

}  // namespace oxelo
