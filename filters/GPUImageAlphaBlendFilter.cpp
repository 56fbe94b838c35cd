#include "filters/GPUImageAlphaBlendFilter.h"

#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"

namespace oxelo {

namespace {

const char* const kAlphaBlendFragmentShader = R"(
varying highp vec2 textureCoordinate;
varying highp vec2 textureCoordinate2;
uniform sampler2D inputImageTexture;
uniform sampler2D inputImageTexture2;
uniform lowp float mixturePercent;
void main() {
  lowp vec4 first = texture2D(inputImageTexture, textureCoordinate);
  lowp vec4 second = texture2D(inputImageTexture2, textureCoordinate2);
  gl_FragColor = vec4(mix(first.rgb, second.rgb, second.a * mixturePercent), first.a);
}
)";

}  // namespace

GPUImageAlphaBlendFilter::GPUImageAlphaBlendFilter()
    : GPUImageTwoInputFilter(kAlphaBlendFragmentShader) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (filterProgram_) mixUniform_ = filterProgram_->uniformIndex("mixturePercent");
  });
  setMix(0.5);
}

void GPUImageAlphaBlendFilter::setMix(double mix) {
  mix_ = mix;
  setFloat(static_cast<float>(mix), mixUniform_, filterProgram_.get());
}

}  // namespace oxelo
