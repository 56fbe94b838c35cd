#include "filters/LFGPUImageEmptyFilter.h"

#include "filters/GPUImageFramebuffer.h"

namespace oxelo {

namespace {

const char* const kEmptyFragmentShader = R"(
varying highp vec2 textureCoordinate;
uniform sampler2D inputImageTexture;
void main() {
  lowp vec4 color = texture2D(inputImageTexture, textureCoordinate);
  gl_FragColor = vec4(color.rgb, color.a);
}
)";

}  // namespace

LFGPUImageEmptyFilter::LFGPUImageEmptyFilter() : GPUImageFilter(kEmptyFragmentShader) {}

void LFGPUImageEmptyFilter::newFrameReadyAtTime(double time, int index) {
  // A bare texture (an upload) has no framebuffer to read back or draw
  // into: it is copied into one.
  const bool unchanged = firstInputFramebuffer_ && !preventRendering_ &&
                         inputRotation_ == kRotationNone &&
                         !firstInputFramebuffer_->missingFramebuffer() &&
                         firstInputFramebuffer_->size() == sizeOfFBO();
  if (!unchanged) {
    GPUImageFilter::newFrameReadyAtTime(time, index);
    return;
  }
  // The lock taken with the input becomes this node's own on its output,
  // which informTargetsAboutNewFrameAtTime() gives back once the targets
  // hold theirs.
  outputFramebuffer_ = std::move(firstInputFramebuffer_);
  ++framesPassedThrough_;
  informTargetsAboutNewFrameAtTime(time);
}

}  // namespace oxelo
