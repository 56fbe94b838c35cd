#pragma once

#include <string>

#include "filters/GPUImageTwoPassFilter.h"

namespace oxelo {

// A two-pass filter that samples around each pixel: the first pass steps
// along the picture's height, the second along its width, each by the
// uniforms "texelWidthOffset" and "texelHeightOffset" worked out from the
// size and the spacing (in pixels per step, 1.0 by default). Spacing setters
// may be called from any thread and wait for the video processing queue.
class GPUImageTwoPassTextureSamplingFilter : public GPUImageTwoPassFilter {
 public:
  GPUImageTwoPassTextureSamplingFilter(const std::string& firstVertexShader,
                                       const std::string& firstFragmentShader,
                                       const std::string& secondVertexShader,
                                       const std::string& secondFragmentShader);

  void setVerticalTexelSpacing(double spacing);
  void setHorizontalTexelSpacing(double spacing);
  double verticalTexelSpacing() const { return verticalTexelSpacing_; }
  double horizontalTexelSpacing() const { return horizontalTexelSpacing_; }

  void setInputSize(GPUSize size, int index) override;
  // Works out the four step values for a picture of `size`; waits for the
  // video processing queue.
  void setupFilterForSize(GPUSize size);

 protected:
  void setUniformsForPass(int index) override;
  // Video processing queue: the step uniforms of the programs now set.
  void lookUpStepUniforms();

  int verticalPassTexelWidthOffsetUniform_ = -1;
  int verticalPassTexelHeightOffsetUniform_ = -1;
  int horizontalPassTexelWidthOffsetUniform_ = -1;
  int horizontalPassTexelHeightOffsetUniform_ = -1;
  float verticalPassTexelWidthOffset_ = 0;
  float verticalPassTexelHeightOffset_ = 0;
  float horizontalPassTexelWidthOffset_ = 0;
  float horizontalPassTexelHeightOffset_ = 0;
  double verticalTexelSpacing_ = 1.0;
  double horizontalTexelSpacing_ = 1.0;
  GPUSize setUpFor_;  // the size the step values were worked out for
};

}  // namespace oxelo
