#pragma once

#include <string>
#include <vector>

#include "filters/GPUImageTwoPassTextureSamplingFilter.h"

namespace oxelo {

// A separable Gaussian blur whose shader texts are generated from a radius R
// (samples on each side) and a sigma. One texture read between two pixels
// stands for two taps; up to 7 such pairs are worked out in the vertex
// stage, any further ones in the fragment stage. Numbers are printed into the
// texts with six decimals. Starts with the texts of R = 4, sigma 2.0.
// setBlurRadiusInPixels() and setTexelSpacingMultiplier() may be called from
// any thread and wait for the video processing queue.
class GPUImageGaussianBlurFilter : public GPUImageTwoPassTextureSamplingFilter {
 public:
  GPUImageGaussianBlurFilter();

  // The normalised weights w[0..R] of the blur.
  static std::vector<float> gaussianWeights(unsigned radius, double sigma);
  // The texts for R and sigma; with R = 0, the default copy texts.
  static std::string vertexShaderForOptimizedBlur(unsigned radius, double sigma);
  static std::string fragmentShaderForOptimizedBlur(unsigned radius, double sigma);
  // The R that reaches out to where the weight of sigma `pixels` falls under
  // 1/256, made even; 0 below one pixel.
  static unsigned sampleRadiusForPixels(double pixels);

  // Rounds `pixels`; a new value regenerates both texts with sigma = it.
  void setBlurRadiusInPixels(double pixels);
  double blurRadiusInPixels() const { return blurRadiusInPixels_; }
  void setTexelSpacingMultiplier(double multiplier);
  double texelSpacingMultiplier() const { return texelSpacingMultiplier_; }
  bool shouldResizeBlurRadiusWithImageSize() const { return shouldResizeBlurRadiusWithImageSize_; }
  void setShouldResizeBlurRadiusWithImageSize(bool value) {
    shouldResizeBlurRadiusWithImageSize_ = value;
  }
  // Both programs anew from these texts, set up as at creation.
  void switchToVertexShader(const std::string& vertexShader, const std::string& fragmentShader);

 protected:
  GPUImageGaussianBlurFilter(const std::string& vertexShader, const std::string& fragmentShader);
  // The fragment text of the blurs: the sum of `sumType` over the samples'
  // `channel` (empty for all four), written out as `output`.
  static std::string blurFragmentShader(unsigned radius, double sigma, const std::string& sumType,
                                        const std::string& channel, const std::string& output);
  // The generators setBlurRadiusInPixels() uses.
  virtual std::string vertexShaderFor(unsigned radius, double sigma) const;
  virtual std::string fragmentShaderFor(unsigned radius, double sigma) const;

  double texelSpacingMultiplier_ = 1.0;
  double blurRadiusInPixels_ = 2.0;
  bool shouldResizeBlurRadiusWithImageSize_ = false;
};

// The pairs of taps the generators read between pixels: offset[k] in pixels
// from the centre, weight[k] for both taps together.
struct OptimizedBlurPairs {
  std::vector<float> offsets;
  std::vector<float> weights;
};
// All ceil(R / 2) pairs for R and sigma, from the normalised weights.
OptimizedBlurPairs optimizedBlurPairs(unsigned radius, double sigma);

}  // namespace oxelo
