#include "filters/GPUImageDirectionalNonMaximumSuppressionFilter.h"

#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"

namespace oxelo {

namespace {

const char* const kNonMaximumSuppressionFragmentShader = R"(
precision mediump float;
varying highp vec2 textureCoordinate;
uniform sampler2D inputImageTexture;
uniform highp float texelWidth;
uniform highp float texelHeight;
uniform mediump float upperThreshold;
uniform mediump float lowerThreshold;
void main() {
  vec3 currentGradientAndDirection = texture2D(inputImageTexture, textureCoordinate).rgb;
  vec2 gradientDirection = ((currentGradientAndDirection.gb * 2.0) - 1.0)
      * vec2(texelWidth, texelHeight);
  float firstSampledGradientMagnitude =
      texture2D(inputImageTexture, textureCoordinate + gradientDirection).r;
  float secondSampledGradientMagnitude =
      texture2D(inputImageTexture, textureCoordinate - gradientDirection).r;
  float multiplier = step(firstSampledGradientMagnitude, currentGradientAndDirection.r);
  multiplier = multiplier * step(secondSampledGradientMagnitude, currentGradientAndDirection.r);
  float thresholdCompliance =
      smoothstep(lowerThreshold, upperThreshold, currentGradientAndDirection.r);
  multiplier = multiplier * thresholdCompliance;
  gl_FragColor = vec4(multiplier, multiplier, multiplier, 1.0);
}
)";

}  // namespace

GPUImageDirectionalNonMaximumSuppressionFilter::GPUImageDirectionalNonMaximumSuppressionFilter()
    : GPUImageFilter(kNonMaximumSuppressionFragmentShader) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!filterProgram_) return;
    texelWidthUniform_ = filterProgram_->uniformIndex("texelWidth");
    texelHeightUniform_ = filterProgram_->uniformIndex("texelHeight");
    upperThresholdUniform_ = filterProgram_->uniformIndex("upperThreshold");
    lowerThresholdUniform_ = filterProgram_->uniformIndex("lowerThreshold");
  });
  setUpperThreshold(0.5);
  setLowerThreshold(0.1);
}

void GPUImageDirectionalNonMaximumSuppressionFilter::setInputSize(GPUSize size, int index) {
  GPUImageFilter::setInputSize(size, index);
  setupFilterForSize(sizeOfFBO());
}

void GPUImageDirectionalNonMaximumSuppressionFilter::setupFilterForSize(GPUSize size) {
  if (hasOverriddenImageSizeFactor_ || size.width <= 0 || size.height <= 0) return;
  texelWidth_ = 1.0 / size.width;
  texelHeight_ = 1.0 / size.height;
  setFloat(static_cast<float>(texelWidth_), texelWidthUniform_, filterProgram_.get());
  setFloat(static_cast<float>(texelHeight_), texelHeightUniform_, filterProgram_.get());
}

void GPUImageDirectionalNonMaximumSuppressionFilter::setTexelWidth(double width) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    hasOverriddenImageSizeFactor_ = true;
    texelWidth_ = width;
    setFloat(static_cast<float>(width), texelWidthUniform_, filterProgram_.get());
  });
}

void GPUImageDirectionalNonMaximumSuppressionFilter::setTexelHeight(double height) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    hasOverriddenImageSizeFactor_ = true;
    texelHeight_ = height;
    setFloat(static_cast<float>(height), texelHeightUniform_, filterProgram_.get());
  });
}

void GPUImageDirectionalNonMaximumSuppressionFilter::setUpperThreshold(double threshold) {
  upperThreshold_ = threshold;
  setFloat(static_cast<float>(threshold), upperThresholdUniform_, filterProgram_.get());
}

void GPUImageDirectionalNonMaximumSuppressionFilter::setLowerThreshold(double threshold) {
  lowerThreshold_ = threshold;
  setFloat(static_cast<float>(threshold), lowerThresholdUniform_, filterProgram_.get());
}

}  // namespace oxelo
