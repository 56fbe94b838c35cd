#include "filters/GPUImage3x3TextureSamplingFilter.h"

#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"

namespace oxelo {

const char* const GPUImage3x3TextureSamplingFilter::kVertexShaderString = R"(
attribute vec4 position;
attribute vec4 inputTextureCoordinate;
uniform float texelWidth;
uniform float texelHeight;
varying vec2 textureCoordinate;
varying vec2 leftTextureCoordinate;
varying vec2 rightTextureCoordinate;
varying vec2 topTextureCoordinate;
varying vec2 topLeftTextureCoordinate;
varying vec2 topRightTextureCoordinate;
varying vec2 bottomTextureCoordinate;
varying vec2 bottomLeftTextureCoordinate;
varying vec2 bottomRightTextureCoordinate;
void main() {
  gl_Position = position;
  vec2 widthStep = vec2(texelWidth, 0.0);
  vec2 heightStep = vec2(0.0, texelHeight);
  vec2 widthHeightStep = vec2(texelWidth, texelHeight);
  vec2 widthNegativeHeightStep = vec2(texelWidth, -texelHeight);
  textureCoordinate = inputTextureCoordinate.xy;
  leftTextureCoordinate = inputTextureCoordinate.xy - widthStep;
  rightTextureCoordinate = inputTextureCoordinate.xy + widthStep;
  topTextureCoordinate = inputTextureCoordinate.xy - heightStep;
  topLeftTextureCoordinate = inputTextureCoordinate.xy - widthHeightStep;
  topRightTextureCoordinate = inputTextureCoordinate.xy + widthNegativeHeightStep;
  bottomTextureCoordinate = inputTextureCoordinate.xy + heightStep;
  bottomLeftTextureCoordinate = inputTextureCoordinate.xy - widthNegativeHeightStep;
  bottomRightTextureCoordinate = inputTextureCoordinate.xy + widthHeightStep;
}
)";

GPUImage3x3TextureSamplingFilter::GPUImage3x3TextureSamplingFilter(
    const std::string& fragmentShader)
    : GPUImageFilter(kVertexShaderString, fragmentShader) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!filterProgram_) return;
    texelWidthUniform_ = filterProgram_->uniformIndex("texelWidth");
    texelHeightUniform_ = filterProgram_->uniformIndex("texelHeight");
  });
}

void GPUImage3x3TextureSamplingFilter::setInputSize(GPUSize size, int index) {
  GPUImageFilter::setInputSize(size, index);
  setupFilterForSize(sizeOfFBO());
}

void GPUImage3x3TextureSamplingFilter::setupFilterForSize(GPUSize size) {
  if (hasOverriddenImageSizeFactor_ || size.width <= 0 || size.height <= 0) return;
  texelWidth_ = 1.0 / size.width;
  texelHeight_ = 1.0 / size.height;
  const bool swap = rotationSwapsWidthAndHeight(inputRotation_);
  setFloat(static_cast<float>(swap ? texelHeight_ : texelWidth_), texelWidthUniform_,
           filterProgram_.get());
  setFloat(static_cast<float>(swap ? texelWidth_ : texelHeight_), texelHeightUniform_,
           filterProgram_.get());
}

void GPUImage3x3TextureSamplingFilter::setTexelWidth(double width) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    hasOverriddenImageSizeFactor_ = true;
    texelWidth_ = width;
    setFloat(static_cast<float>(width), texelWidthUniform_, filterProgram_.get());
  });
}

void GPUImage3x3TextureSamplingFilter::setTexelHeight(double height) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    hasOverriddenImageSizeFactor_ = true;
    texelHeight_ = height;
    setFloat(static_cast<float>(height), texelHeightUniform_, filterProgram_.get());
  });
}

}  // namespace oxelo
