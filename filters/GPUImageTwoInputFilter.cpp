#include "filters/GPUImageTwoInputFilter.h"

#include "filters/GLES.h"
#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"

namespace oxelo {

const char* const GPUImageTwoInputFilter::kVertexShaderString = R"(
attribute vec4 position;
attribute vec4 inputTextureCoordinate;
attribute vec4 inputTextureCoordinate2;
varying vec2 textureCoordinate;
varying vec2 textureCoordinate2;
void main() {
  gl_Position = position;
  textureCoordinate = inputTextureCoordinate.xy;
  textureCoordinate2 = inputTextureCoordinate2.xy;
}
)";

const char* const GPUImageThreeInputFilter::kVertexShaderString = R"(
attribute vec4 position;
attribute vec4 inputTextureCoordinate;
attribute vec4 inputTextureCoordinate2;
attribute vec4 inputTextureCoordinate3;
varying vec2 textureCoordinate;
varying vec2 textureCoordinate2;
varying vec2 textureCoordinate3;
void main() {
  gl_Position = position;
  textureCoordinate = inputTextureCoordinate.xy;
  textureCoordinate2 = inputTextureCoordinate2.xy;
  textureCoordinate3 = inputTextureCoordinate3.xy;
}
)";

namespace {

// Binds one further input: its texture on `unit`, its sampler, its coordinates.
void bindInput(const std::shared_ptr<GPUImageFramebuffer>& framebuffer, int unit, int uniform,
               int attribute, const float* coordinates) {
  glActiveTexture(static_cast<GLenum>(GL_TEXTURE0 + unit));
  glBindTexture(GL_TEXTURE_2D, framebuffer ? framebuffer->texture() : 0);
  glUniform1i(uniform, unit);
  if (attribute < 0) return;
  glEnableVertexAttribArray(static_cast<GLuint>(attribute));
  glVertexAttribPointer(static_cast<GLuint>(attribute), 2, GL_FLOAT, GL_FALSE, 0, coordinates);
}

void releaseInput(std::shared_ptr<GPUImageFramebuffer>& framebuffer, int attribute) {
  // Other programs have no array at this location: leave it off for them.
  if (attribute >= 0) glDisableVertexAttribArray(static_cast<GLuint>(attribute));
  if (framebuffer) framebuffer->unlock();
  framebuffer.reset();
}

void storeLocked(std::shared_ptr<GPUImageFramebuffer>& slot,
                 std::shared_ptr<GPUImageFramebuffer> framebuffer) {
  if (slot) slot->unlock();
  slot = std::move(framebuffer);
  if (slot) slot->lock();
}

}  // namespace

GPUImageTwoInputFilter::GPUImageTwoInputFilter(const std::string& vertexShader,
                                               const std::string& fragmentShader,
                                               std::vector<std::string> extraAttributes)
    : GPUImageFilter(vertexShader, fragmentShader, std::move(extraAttributes)) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!filterProgram_) return;
    filterSecondTextureCoordinateAttribute_ =
        filterProgram_->attributeIndex("inputTextureCoordinate2");
    filterInputTextureUniform2_ = filterProgram_->uniformIndex("inputImageTexture2");
  });
}

GPUImageTwoInputFilter::GPUImageTwoInputFilter(const std::string& vertexShader,
                                               const std::string& fragmentShader)
    : GPUImageTwoInputFilter(vertexShader, fragmentShader, {"inputTextureCoordinate2"}) {}

GPUImageTwoInputFilter::GPUImageTwoInputFilter(const std::string& fragmentShader)
    : GPUImageTwoInputFilter(kVertexShaderString, fragmentShader) {}

void GPUImageTwoInputFilter::bindAdditionalInputs() {
  bindInput(secondInputFramebuffer_, 3, filterInputTextureUniform2_,
            filterSecondTextureCoordinateAttribute_,
            textureCoordinatesForRotation(inputRotation2_));
}

void GPUImageTwoInputFilter::releaseAdditionalInputs() {
  releaseInput(secondInputFramebuffer_, filterSecondTextureCoordinateAttribute_);
}

void GPUImageTwoInputFilter::setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer,
                                                 int index) {
  if (index == 0) {
    GPUImageFilter::setInputFramebuffer(std::move(framebuffer), 0);
    hasSetFirstTexture_ = true;
    return;
  }
  storeLocked(secondInputFramebuffer_, std::move(framebuffer));
}

void GPUImageTwoInputFilter::setInputSize(GPUSize size, int index) {
  if (index != 0) return;
  GPUImageFilter::setInputSize(size, 0);
  if (size.isZero()) hasSetFirstTexture_ = false;
}

void GPUImageTwoInputFilter::setInputRotation(uint64_t mode, int index) {
  if (index == 0) {
    inputRotation_ = mode;
    return;
  }
  inputRotation2_ = mode;
}

GPUSize GPUImageTwoInputFilter::rotatedSize(GPUSize size, int index) const {
  const uint64_t mode = index == 0 ? inputRotation_ : inputRotation2_;
  if (rotationSwapsWidthAndHeight(mode)) return {size.height, size.width};
  return size;
}

void GPUImageTwoInputFilter::newFrameReadyAtTime(double time, int index) {
  // Both marked already: an update that came round in a loop.
  if (hasReceivedFirstFrame_ && hasReceivedSecondFrame_) return;
  bool movieFrameOppositeStillImage = false;
  if (index == 0) {
    hasReceivedFirstFrame_ = true;
    firstFrameTime_ = time;
    if (secondFrameCheckDisabled_) hasReceivedSecondFrame_ = true;
    movieFrameOppositeStillImage = !isIndefiniteTime(time) && isIndefiniteTime(secondFrameTime_);
  } else {
    hasReceivedSecondFrame_ = true;
    secondFrameTime_ = time;
    if (firstFrameCheckDisabled_) hasReceivedFirstFrame_ = true;
    movieFrameOppositeStillImage = !isIndefiniteTime(time) && isIndefiniteTime(firstFrameTime_);
  }
  if (!(hasReceivedFirstFrame_ && hasReceivedSecondFrame_) && !movieFrameOppositeStillImage) return;
  GPUImageFilter::newFrameReadyAtTime(
      isIndefiniteTime(firstFrameTime_) ? secondFrameTime_ : firstFrameTime_, 0);
  hasReceivedFirstFrame_ = false;
  hasReceivedSecondFrame_ = false;
}

GPUImageThreeInputFilter::GPUImageThreeInputFilter(const std::string& fragmentShader)
    : GPUImageTwoInputFilter(kVertexShaderString, fragmentShader,
                             {"inputTextureCoordinate2", "inputTextureCoordinate3"}) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!filterProgram_) return;
    filterThirdTextureCoordinateAttribute_ =
        filterProgram_->attributeIndex("inputTextureCoordinate3");
    filterInputTextureUniform3_ = filterProgram_->uniformIndex("inputImageTexture3");
  });
}

void GPUImageThreeInputFilter::bindAdditionalInputs() {
  GPUImageTwoInputFilter::bindAdditionalInputs();
  bindInput(thirdInputFramebuffer_, 4, filterInputTextureUniform3_,
            filterThirdTextureCoordinateAttribute_, textureCoordinatesForRotation(inputRotation3_));
}

void GPUImageThreeInputFilter::releaseAdditionalInputs() {
  GPUImageTwoInputFilter::releaseAdditionalInputs();
  releaseInput(thirdInputFramebuffer_, filterThirdTextureCoordinateAttribute_);
}

int GPUImageThreeInputFilter::nextAvailableTextureIndex() const {
  if (hasSetSecondTexture_) return 2;
  return hasSetFirstTexture_ ? 1 : 0;
}

void GPUImageThreeInputFilter::setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer,
                                                   int index) {
  if (index < 2) {
    if (index == 1) hasSetSecondTexture_ = true;
    GPUImageTwoInputFilter::setInputFramebuffer(std::move(framebuffer), index);
    return;
  }
  storeLocked(thirdInputFramebuffer_, std::move(framebuffer));
}

void GPUImageThreeInputFilter::setInputSize(GPUSize size, int index) {
  if (index == 1 && size.isZero()) hasSetSecondTexture_ = false;
  GPUImageTwoInputFilter::setInputSize(size, index);
}

void GPUImageThreeInputFilter::setInputRotation(uint64_t mode, int index) {
  if (index == 2) {
    inputRotation3_ = mode;
    return;
  }
  GPUImageTwoInputFilter::setInputRotation(mode, index);
}

void GPUImageThreeInputFilter::newFrameReadyAtTime(double time, int index) {
  if (hasReceivedFirstFrame_ && hasReceivedSecondFrame_ && hasReceivedThirdFrame_) return;
  bool movieFrameOppositeStillImage = false;
  if (index == 0) {
    hasReceivedFirstFrame_ = true;
    firstFrameTime_ = time;
    movieFrameOppositeStillImage = !isIndefiniteTime(time) && isIndefiniteTime(secondFrameTime_);
  } else if (index == 1) {
    hasReceivedSecondFrame_ = true;
    secondFrameTime_ = time;
    movieFrameOppositeStillImage = !isIndefiniteTime(time) && isIndefiniteTime(firstFrameTime_);
  } else {
    hasReceivedThirdFrame_ = true;
    thirdFrameTime_ = time;
    movieFrameOppositeStillImage = !isIndefiniteTime(time) && isIndefiniteTime(firstFrameTime_);
  }
  if (secondFrameCheckDisabled_) hasReceivedSecondFrame_ = true;
  if (thirdFrameCheckDisabled_) hasReceivedThirdFrame_ = true;
  const bool all = hasReceivedFirstFrame_ && hasReceivedSecondFrame_ && hasReceivedThirdFrame_;
  if (!all && !movieFrameOppositeStillImage) return;
  renderToTexture(defaultVertices(), textureCoordinatesForRotation(inputRotation_));
  informTargetsAboutNewFrameAtTime(time);
  hasReceivedFirstFrame_ = false;
  hasReceivedSecondFrame_ = false;
  hasReceivedThirdFrame_ = false;
}

}  // namespace oxelo
