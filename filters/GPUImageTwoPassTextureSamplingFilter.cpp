#include "filters/GPUImageTwoPassTextureSamplingFilter.h"

#include "filters/GLES.h"
#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"

namespace oxelo {

GPUImageTwoPassTextureSamplingFilter::GPUImageTwoPassTextureSamplingFilter(
    const std::string& firstVertexShader, const std::string& firstFragmentShader,
    const std::string& secondVertexShader, const std::string& secondFragmentShader)
    : GPUImageTwoPassFilter(firstVertexShader, firstFragmentShader, secondVertexShader,
                            secondFragmentShader) {
  runSynchronouslyOnVideoProcessingQueue([this] { lookUpStepUniforms(); });
}

void GPUImageTwoPassTextureSamplingFilter::lookUpStepUniforms() {
  if (filterProgram_) {
    verticalPassTexelWidthOffsetUniform_ = filterProgram_->uniformIndex("texelWidthOffset");
    verticalPassTexelHeightOffsetUniform_ = filterProgram_->uniformIndex("texelHeightOffset");
  }
  if (secondFilterProgram_) {
    horizontalPassTexelWidthOffsetUniform_ = secondFilterProgram_->uniformIndex("texelWidthOffset");
    horizontalPassTexelHeightOffsetUniform_ =
        secondFilterProgram_->uniformIndex("texelHeightOffset");
  }
}

void GPUImageTwoPassTextureSamplingFilter::setInputSize(GPUSize size, int index) {
  GPUImageTwoPassFilter::setInputSize(size, index);
  if (!(sizeOfFBO() == setUpFor_)) setupFilterForSize(sizeOfFBO());
}

void GPUImageTwoPassTextureSamplingFilter::setupFilterForSize(GPUSize size) {
  runSynchronouslyOnVideoProcessingQueue([this, size] {
    if (size.width <= 0 || size.height <= 0) return;
    setUpFor_ = size;
    const auto vertical = static_cast<float>(verticalTexelSpacing_ / size.height);
    if (rotationSwapsWidthAndHeight(inputRotation_)) {
      verticalPassTexelWidthOffset_ = vertical;
      verticalPassTexelHeightOffset_ = 0;
    } else {
      verticalPassTexelWidthOffset_ = 0;
      verticalPassTexelHeightOffset_ = vertical;
    }
    horizontalPassTexelWidthOffset_ = static_cast<float>(horizontalTexelSpacing_ / size.width);
    horizontalPassTexelHeightOffset_ = 0;
  });
}

void GPUImageTwoPassTextureSamplingFilter::setVerticalTexelSpacing(double spacing) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    verticalTexelSpacing_ = spacing;
    setupFilterForSize(sizeOfFBO());
  });
}

void GPUImageTwoPassTextureSamplingFilter::setHorizontalTexelSpacing(double spacing) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    horizontalTexelSpacing_ = spacing;
    setupFilterForSize(sizeOfFBO());
  });
}

void GPUImageTwoPassTextureSamplingFilter::setUniformsForPass(int index) {
  GPUImageTwoPassFilter::setUniformsForPass(index);
  if (index == 0) {
    glUniform1f(verticalPassTexelWidthOffsetUniform_, verticalPassTexelWidthOffset_);
    glUniform1f(verticalPassTexelHeightOffsetUniform_, verticalPassTexelHeightOffset_);
    return;
  }
  glUniform1f(horizontalPassTexelWidthOffsetUniform_, horizontalPassTexelWidthOffset_);
  glUniform1f(horizontalPassTexelHeightOffsetUniform_, horizontalPassTexelHeightOffset_);
}

}  // namespace oxelo
