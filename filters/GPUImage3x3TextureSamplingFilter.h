#pragma once

#include <string>

#include "filters/GPUImageFilter.h"

namespace oxelo {

// A filter whose fragment program reads the 3 by 3 neighbourhood of each
// pixel: its vertex stage hands on textureCoordinate and the eight
// neighbours' coordinates (leftTextureCoordinate, topRightTextureCoordinate,
// ...), one texel apart by the uniforms "texelWidth" and "texelHeight". The
// texel size follows the input size unless set by hand. The setters may be
// called from any thread and wait for the video processing queue, where the
// rest runs.
class GPUImage3x3TextureSamplingFilter : public GPUImageFilter {
 public:
  explicit GPUImage3x3TextureSamplingFilter(const std::string& fragmentShader);

  static const char* const kVertexShaderString;

  void setInputSize(GPUSize size, int index) override;
  void setupFilterForSize(GPUSize size);
  void setTexelWidth(double width);
  void setTexelHeight(double height);
  double texelWidth() const { return texelWidth_; }
  double texelHeight() const { return texelHeight_; }

 protected:
  double texelWidth_ = 0;
  double texelHeight_ = 0;
  bool hasOverriddenImageSizeFactor_ = false;
  int texelWidthUniform_ = -1;
  int texelHeightUniform_ = -1;
};

}  // namespace oxelo
