#include "filters/GPUImageColorMatrixFilter.h"

#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"

namespace oxelo {

namespace {

const char* const kColorMatrixFragmentShader = R"(
varying highp vec2 textureCoordinate;
uniform sampler2D inputImageTexture;
uniform lowp mat4 colorMatrix;
uniform lowp float intensity;
void main() {
  lowp vec4 textureColor = texture2D(inputImageTexture, textureCoordinate);
  lowp vec4 outputColor = textureColor * colorMatrix;
  gl_FragColor = (intensity * outputColor) + ((1.0 - intensity) * textureColor);
}
)";

}  // namespace

GPUImageColorMatrixFilter::GPUImageColorMatrixFilter()
    : GPUImageFilter(kColorMatrixFragmentShader) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!filterProgram_) return;
    colorMatrixUniform_ = filterProgram_->uniformIndex("colorMatrix");
    intensityUniform_ = filterProgram_->uniformIndex("intensity");
  });
  setIntensity(1.0);
  setColorMatrix(kIdentity);
}

void GPUImageColorMatrixFilter::setColorMatrix(const Matrix& matrix) {
  colorMatrix_ = matrix;
  setMatrix4f(matrix, colorMatrixUniform_, filterProgram_.get());
}

void GPUImageColorMatrixFilter::setIntensity(double intensity) {
  intensity_ = intensity;
  setFloat(static_cast<float>(intensity), intensityUniform_, filterProgram_.get());
}

}  // namespace oxelo
