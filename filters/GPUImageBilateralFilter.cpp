#include "filters/GPUImageBilateralFilter.h"

#include <cstdio>
#include <string>

#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"

namespace oxelo {

namespace {

// Base weights of the taps from -4 to +4 steps.
constexpr double kTapWeights[9] = {0.05, 0.09, 0.12, 0.15, 0.18, 0.15, 0.12, 0.09, 0.05};

const char* const kBilateralVertexShader = R"(
attribute vec4 position;
attribute vec4 inputTextureCoordinate;
uniform float texelWidthOffset;
uniform float texelHeightOffset;
varying vec2 blurCoordinates[9];
void main() {
  gl_Position = position;
  vec2 singleStepOffset = vec2(texelWidthOffset, texelHeightOffset);
  for (int i = 0; i < 9; i++) {
    blurCoordinates[i] = inputTextureCoordinate.xy + singleStepOffset * float(i - 4);
  }
}
)";

std::string bilateralFragmentShader() {
  std::string text = R"(
uniform sampler2D inputImageTexture;
uniform mediump float distanceNormalizationFactor;
varying highp vec2 blurCoordinates[9];
void main() {
  lowp vec4 centralColor = texture2D(inputImageTexture, blurCoordinates[4]);
  lowp float gaussianWeightTotal = 0.18;
  lowp vec4 sum = centralColor * 0.18;
  lowp vec4 sampleColor;
  lowp float distanceFromCentralColor;
  lowp float gaussianWeight;
)";
  for (int i = 0; i < 9; ++i) {
    if (i == 4) continue;
    char weight[32];
    std::snprintf(weight, sizeof weight, "%f", kTapWeights[i]);
    text += "  sampleColor = texture2D(inputImageTexture, blurCoordinates[" + std::to_string(i) +
            "]);\n"
            "  distanceFromCentralColor = min(distance(centralColor, sampleColor) * "
            "distanceNormalizationFactor, 1.0);\n"
            "  gaussianWeight = " +
            weight +
            " * (1.0 - distanceFromCentralColor);\n"
            "  gaussianWeightTotal += gaussianWeight;\n"
            "  sum += sampleColor * gaussianWeight;\n";
  }
  return text + "  gl_FragColor = sum / gaussianWeightTotal;\n}\n";
}

}  // namespace

GPUImageBilateralFilter::GPUImageBilateralFilter()
    : GPUImageGaussianBlurFilter(kBilateralVertexShader, bilateralFragmentShader()) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!filterProgram_) return;
    firstDistanceNormalizationFactorUniform_ =
        filterProgram_->uniformIndex("distanceNormalizationFactor");
    secondDistanceNormalizationFactorUniform_ =
        filterProgram_->uniformIndex("distanceNormalizationFactor");
  });
  setTexelSpacingMultiplier(4.0);
  setDistanceNormalizationFactor(8.0);
}

void GPUImageBilateralFilter::setDistanceNormalizationFactor(double factor) {
  distanceNormalizationFactor_ = factor;
  setFloat(static_cast<float>(factor), firstDistanceNormalizationFactorUniform_,
           filterProgram_.get());
  setFloat(static_cast<float>(factor), secondDistanceNormalizationFactorUniform_,
           secondFilterProgram_.get());
}

}  // namespace oxelo
