#pragma once

#include <array>

#include "filters/GPUImageFilter.h"

namespace oxelo {

// Each pixel's RGBA row vector times a 4 by 4 matrix (given by columns, as
// the shader's mat4), mixed with the pixel by the intensity (1.0: all
// matrix). Identity by default. Setters may be called from any thread.
class GPUImageColorMatrixFilter : public GPUImageFilter {
 public:
  using Matrix = std::array<float, 16>;
  static constexpr Matrix kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

  GPUImageColorMatrixFilter();

  void setColorMatrix(const Matrix& matrix);
  const Matrix& colorMatrix() const { return colorMatrix_; }
  void setIntensity(double intensity);
  double intensity() const { return intensity_; }

 private:
  Matrix colorMatrix_ = kIdentity;
  double intensity_ = 1.0;
  int colorMatrixUniform_ = -1;
  int intensityUniform_ = -1;
};

}  // namespace oxelo
