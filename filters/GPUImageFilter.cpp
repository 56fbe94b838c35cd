#include "filters/GPUImageFilter.h"

#include <algorithm>

#include "filters/GLES.h"
#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/GPUImageFramebufferCache.h"

namespace oxelo {

const char* const kGPUImageVertexShaderString = R"(
attribute vec4 position;
attribute vec4 inputTextureCoordinate;
varying vec2 textureCoordinate;
void main() {
  gl_Position = position;
  textureCoordinate = inputTextureCoordinate.xy;
}
)";

const char* const kGPUImagePassthroughFragmentShaderString = R"(
varying highp vec2 textureCoordinate;
uniform sampler2D inputImageTexture;
void main() {
  gl_FragColor = texture2D(inputImageTexture, textureCoordinate);
}
)";

namespace {

constexpr float kRotationCoordinates[8][8] = {
    {0, 0, 1, 0, 0, 1, 1, 1},  // 0 none
    {1, 0, 1, 1, 0, 0, 0, 1},  // 1 rotate left
    {0, 1, 0, 0, 1, 1, 1, 0},  // 2 rotate right
    {0, 1, 1, 1, 0, 0, 1, 0},  // 3 flip vertically
    {1, 0, 0, 0, 1, 1, 0, 1},  // 4 flip horizontally
    {0, 0, 0, 1, 1, 0, 1, 1},  // 5 rotate right and flip vertically
    {1, 1, 1, 0, 0, 1, 0, 0},  // 6 rotate right and flip horizontally
    {1, 1, 0, 1, 1, 0, 0, 0},  // 7 rotate 180 degrees
};

constexpr float kDefaultVertices[8] = {-1, -1, 1, -1, -1, 1, 1, 1};

}  // namespace

GPUSize aspectFitSize(GPUSize aspect, GPUSize bounds) {
  if (aspect.width <= 0 || aspect.height <= 0) return {};
  const double scale = std::min(bounds.width / aspect.width, bounds.height / aspect.height);
  return {aspect.width * scale, aspect.height * scale};
}

GPUImageFilter::GPUImageFilter(const std::string& vertexShader, const std::string& fragmentShader,
                               std::vector<std::string> extraAttributes) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    auto& context = GPUImageContext::sharedImageProcessingContext();
    if (!GPUImageContext::useImageProcessingContext()) return;
    filterProgram_ = context.programForVertexShaderString(vertexShader, fragmentShader);
    if (!prepareProgram(*filterProgram_, extraAttributes)) {
      filterProgram_.reset();
      return;
    }
    filterPositionAttribute_ = filterProgram_->attributeIndex("position");
    filterTextureCoordinateAttribute_ = filterProgram_->attributeIndex("inputTextureCoordinate");
    filterInputTextureUniform_ = filterProgram_->uniformIndex("inputImageTexture");
    GPUImageContext::setActiveShaderProgram(filterProgram_.get());
    glEnableVertexAttribArray(static_cast<GLuint>(filterPositionAttribute_));
    glEnableVertexAttribArray(static_cast<GLuint>(filterTextureCoordinateAttribute_));
  });
}

GPUImageFilter::GPUImageFilter(const std::string& vertexShader, const std::string& fragmentShader)
    : GPUImageFilter(vertexShader, fragmentShader, {}) {}

GPUImageFilter::GPUImageFilter(const std::string& fragmentShader)
    : GPUImageFilter(kGPUImageVertexShaderString, fragmentShader, {}) {}

GPUImageFilter::GPUImageFilter()
    : GPUImageFilter(kGPUImageVertexShaderString, kGPUImagePassthroughFragmentShaderString, {}) {}

GPUImageFilter::~GPUImageFilter() {
  liveness_.reset();
  // Uniform tasks posted from elsewhere and still queued must not outlive us.
  runSynchronouslyOnVideoProcessingQueue([] {});
}

const float* GPUImageFilter::textureCoordinatesForRotation(uint64_t mode) {
  return kRotationCoordinates[mode > 7 ? 0 : mode];
}

const float* GPUImageFilter::defaultVertices() { return kDefaultVertices; }

GPUSize GPUImageFilter::rotatedSize(GPUSize size, int /*index*/) const {
  if (rotationSwapsWidthAndHeight(inputRotation_)) return {size.height, size.width};
  return size;
}

GPUSize GPUImageFilter::sizeOfFBO() const {
  const GPUSize outputSize = maximumOutputSize();
  if (outputSize.isZero() || inputTextureSize_.width < outputSize.width) return inputTextureSize_;
  return outputSize;
}

void GPUImageFilter::setInputSize(GPUSize size, int index) {
  if (preventRendering_) return;
  if (overrideInputSize_) {
    if (!forcedMaximumSize_.isZero()) inputTextureSize_ = aspectFitSize(size, forcedMaximumSize_);
  } else {
    const GPUSize rotated = rotatedSize(size, index);
    if (rotated.isZero() || !(rotated == inputTextureSize_)) inputTextureSize_ = rotated;
  }
}

void GPUImageFilter::setInputRotation(uint64_t mode, int /*index*/) { inputRotation_ = mode; }

void GPUImageFilter::forceProcessingAtSize(GPUSize size) {
  if (size.isZero()) {
    overrideInputSize_ = false;
    return;
  }
  overrideInputSize_ = true;
  inputTextureSize_ = size;
  forcedMaximumSize_ = {};
}

void GPUImageFilter::forceProcessingAtSizeRespectingAspectRatio(GPUSize size) {
  if (size.isZero()) {
    overrideInputSize_ = false;
    inputTextureSize_ = {};
    forcedMaximumSize_ = {};
    return;
  }
  overrideInputSize_ = true;
  forcedMaximumSize_ = size;
}

void GPUImageFilter::setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer,
                                         int /*index*/) {
  // A frame handed on and never drawn gives its count back here.
  unlockFirstInput();
  firstInputFramebuffer_ = std::move(framebuffer);
  if (firstInputFramebuffer_) firstInputFramebuffer_->lock();
}

void GPUImageFilter::unlockFirstInput() {
  if (firstInputFramebuffer_) firstInputFramebuffer_->unlock();
  firstInputFramebuffer_.reset();
}

void GPUImageFilter::endProcessing() {
  if (isEndProcessing_) return;
  isEndProcessing_ = true;
  for (auto& target : targets_) target->endProcessing();
}

void GPUImageFilter::newFrameReadyAtTime(double time, int /*index*/) {
  renderToTexture(kDefaultVertices, textureCoordinatesForRotation(inputRotation_));
  informTargetsAboutNewFrameAtTime(time);
}

void GPUImageFilter::renderToTexture(const float* vertices, const float* textureCoordinates) {
  if (preventRendering_ || !GPUImageContext::useImageProcessingContext()) {
    unlockFirstInput();
    releaseAdditionalInputs();
    return;
  }
  GPUImageContext::setActiveShaderProgram(filterProgram_.get());
  outputFramebuffer_ = GPUImageContext::sharedFramebufferCache().fetchFramebufferForSize(
      sizeOfFBO(), outputTextureOptions, false);
  outputFramebuffer_->activateFramebuffer();
  setUniformsForProgramAtIndex(0);
  glClearColor(backgroundColor_[0], backgroundColor_[1], backgroundColor_[2], backgroundColor_[3]);
  glClear(GL_COLOR_BUFFER_BIT);
  if (filterProgram_) {
    glActiveTexture(GL_TEXTURE2);
    glBindTexture(GL_TEXTURE_2D, firstInputFramebuffer_ ? firstInputFramebuffer_->texture() : 0);
    glUniform1i(filterInputTextureUniform_, 2);
    glVertexAttribPointer(static_cast<GLuint>(filterPositionAttribute_), 2, GL_FLOAT, GL_FALSE, 0,
                          vertices);
    glVertexAttribPointer(static_cast<GLuint>(filterTextureCoordinateAttribute_), 2, GL_FLOAT,
                          GL_FALSE, 0, textureCoordinates);
    bindAdditionalInputs();
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
  }
  unlockFirstInput();
  releaseAdditionalInputs();
}

void GPUImageFilter::informTargetsAboutNewFrameAtTime(double time) {
  // Nothing was drawn (rendering prevented, or no GL context): nothing to pass on.
  if (!outputFramebuffer_) return;
  if (frameProcessingCompletionBlock_) frameProcessingCompletionBlock_(this, time);
  for (size_t i = 0; i < targets_.size(); ++i) {
    if (targets_[i].get() == targetToIgnoreForUpdates_) continue;
    setInputFramebufferForTarget(*targets_[i], targetTextureIndices_[i]);
    targets_[i]->setInputSize(outputFrameSize(), targetTextureIndices_[i]);
  }
  if (auto framebuffer = framebufferForOutput()) framebuffer->unlock();
  removeOutputFramebuffer();
  // Every target holds its lock before the first of them draws.
  for (size_t i = 0; i < targets_.size(); ++i) {
    if (targets_[i].get() == targetToIgnoreForUpdates_) continue;
    targets_[i]->newFrameReadyAtTime(time, targetTextureIndices_[i]);
  }
}

void GPUImageFilter::setBackgroundColor(float red, float green, float blue, float alpha) {
  backgroundColor_ = {red, green, blue, alpha};
}

void GPUImageFilter::runWhileAlive(std::function<void()> task) {
  runAsynchronouslyOnVideoProcessingQueue(
      [alive = std::weak_ptr<int>(liveness_), task = std::move(task)] {
        if (alive.lock()) task();
      });
}

void GPUImageFilter::setFloat(float value, const std::string& uniformName) {
  runWhileAlive([this, value, uniformName] {
    if (!filterProgram_) return;
    setFloat(value, filterProgram_->uniformIndex(uniformName), filterProgram_.get());
  });
}

void GPUImageFilter::setPoint(float x, float y, const std::string& uniformName) {
  runWhileAlive([this, x, y, uniformName] {
    if (!filterProgram_) return;
    const int uniform = filterProgram_->uniformIndex(uniformName);
    GPUImageContext::setActiveShaderProgram(filterProgram_.get());
    setAndExecuteUniformStateCallbackAtIndex(uniform, filterProgram_.get(),
                                             [uniform, x, y] { glUniform2f(uniform, x, y); });
  });
}

void GPUImageFilter::setFloatVec4(std::array<float, 4> vector, int uniform) {
  runWhileAlive([this, vector, uniform] {
    if (!filterProgram_) return;
    GPUImageContext::setActiveShaderProgram(filterProgram_.get());
    setAndExecuteUniformStateCallbackAtIndex(uniform, filterProgram_.get(), [uniform, vector] {
      glUniform4fv(uniform, 1, vector.data());
    });
  });
}

void GPUImageFilter::setFloat(float value, int uniform, GLProgram* program) {
  runWhileAlive([this, value, uniform, program] {
    GPUImageContext::setActiveShaderProgram(program);
    setAndExecuteUniformStateCallbackAtIndex(uniform, program,
                                             [uniform, value] { glUniform1f(uniform, value); });
  });
}

void GPUImageFilter::setMatrix4f(std::array<float, 16> matrix, int uniform, GLProgram* program) {
  runWhileAlive([this, matrix, uniform, program] {
    GPUImageContext::setActiveShaderProgram(program);
    setAndExecuteUniformStateCallbackAtIndex(uniform, program, [uniform, matrix] {
      glUniformMatrix4fv(uniform, 1, GL_FALSE, matrix.data());
    });
  });
}

void GPUImageFilter::setAndExecuteUniformStateCallbackAtIndex(int uniform, GLProgram* /*program*/,
                                                              std::function<void()> block) {
  if (uniform < 0) return;
  uniformStateRestorationBlocks_[uniform] = block;
  block();
}

void GPUImageFilter::setUniformsForProgramAtIndex(int /*programIndex*/) {
  for (auto& [uniform, block] : uniformStateRestorationBlocks_) block();
}

}  // namespace oxelo
