#include "filters/GPUImageCombinationFilter.h"

#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"

namespace oxelo {

namespace {

const char* const kCombinationFragmentShader = R"(
precision highp float;
varying highp vec2 textureCoordinate;
varying highp vec2 textureCoordinate2;
varying highp vec2 textureCoordinate3;
uniform sampler2D inputImageTexture;
uniform sampler2D inputImageTexture2;
uniform sampler2D inputImageTexture3;
uniform mediump float smoothDegree;
void main() {
  highp vec4 bilateral = texture2D(inputImageTexture, textureCoordinate);
  highp vec4 canny = texture2D(inputImageTexture2, textureCoordinate2);
  highp vec4 origin = texture2D(inputImageTexture3, textureCoordinate3);
  highp vec4 smoothed;
  lowp float r = origin.r;
  lowp float g = origin.g;
  lowp float b = origin.b;
  if (canny.r < 0.2 && r > 0.3725 && g > 0.1568 && b > 0.0784 && r > b
      && (max(max(r, g), b) - min(min(r, g), b)) > 0.0588 && abs(r - g) > 0.0588) {
    smoothed = (1.0 - smoothDegree) * (origin - bilateral) + bilateral;
  } else {
    smoothed = origin;
  }
  smoothed.r = log(1.0 + 0.2 * smoothed.r) / log(1.2);
  smoothed.g = log(1.0 + 0.2 * smoothed.g) / log(1.2);
  smoothed.b = log(1.0 + 0.2 * smoothed.b) / log(1.2);
  gl_FragColor = smoothed;
}
)";

}  // namespace

GPUImageCombinationFilter::GPUImageCombinationFilter()
    : GPUImageThreeInputFilter(kCombinationFragmentShader) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (filterProgram_) smoothDegreeUniform_ = filterProgram_->uniformIndex("smoothDegree");
  });
  setIntensity(0.5);
}

void GPUImageCombinationFilter::setIntensity(double intensity) {
  intensity_ = intensity;
  setFloat(static_cast<float>(intensity), smoothDegreeUniform_, filterProgram_.get());
}

}  // namespace oxelo
