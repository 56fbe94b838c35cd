#include "filters/GPUImageView.h"

#include <cmath>
#include <cstring>

#include "filters/GLES.h"
#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFilter.h"
#include "filters/GPUImageFramebuffer.h"

namespace oxelo {

namespace {

constexpr float kViewCoordinates[8][8] = {
    {0, 1, 1, 1, 0, 0, 1, 0},  // 0
    {0, 0, 0, 1, 1, 0, 1, 1},  // 1
    {1, 1, 1, 0, 0, 1, 0, 0},  // 2
    {0, 0, 1, 0, 0, 1, 1, 1},  // 3
    {1, 1, 0, 1, 1, 0, 0, 0},  // 4
    {1, 0, 1, 1, 0, 0, 0, 1},  // 5
    {0, 1, 0, 0, 1, 1, 1, 0},  // 6
    {1, 0, 0, 0, 1, 1, 0, 1},  // 7
};

}  // namespace

const float* GPUImageView::textureCoordinatesForRotation(uint64_t mode) {
  return kViewCoordinates[mode > 7 ? 0 : mode];
}

GPUImageView::GPUImageView() {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!GPUImageContext::useImageProcessingContext()) return;
    displayProgram_ = GPUImageContext::sharedImageProcessingContext().programForVertexShaderString(
        kGPUImageVertexShaderString, kGPUImagePassthroughFragmentShaderString);
    if (!prepareProgram(*displayProgram_)) {
      displayProgram_.reset();
      return;
    }
    displayPositionAttribute_ = displayProgram_->attributeIndex("position");
    displayTextureCoordinateAttribute_ = displayProgram_->attributeIndex("inputTextureCoordinate");
    displayInputTextureUniform_ = displayProgram_->uniformIndex("inputImageTexture");
    GPUImageContext::setActiveShaderProgram(displayProgram_.get());
    glEnableVertexAttribArray(static_cast<GLuint>(displayPositionAttribute_));
    glEnableVertexAttribArray(static_cast<GLuint>(displayTextureCoordinateAttribute_));
    createDisplayFramebuffer();
  });
}

GPUImageView::~GPUImageView() {
  runSynchronouslyOnVideoProcessingQueue([this] {
    destroyDisplayFramebuffer();
    if (inputFramebufferForDisplay_) inputFramebufferForDisplay_->unlock();
  });
}

void GPUImageView::setSizeInPixels(GPUSize size) {
  {
    std::lock_guard lock(mutex_);
    sizeInPixels_ = size;
  }
  runSynchronouslyOnVideoProcessingQueue([this, size] {
    if (!(size == boundsSizeAtFrameBufferEpoch_) && !size.isZero()) {
      destroyDisplayFramebuffer();
      createDisplayFramebuffer();
    } else if (!size.isZero()) {
      recalculateViewGeometry();
    }
  });
}

GPUSize GPUImageView::sizeInPixels() const {
  std::lock_guard lock(mutex_);
  return sizeInPixels_;
}

GPUSize GPUImageView::maximumOutputSize() const { return sizeInPixels(); }

void GPUImageView::setFillMode(uint64_t mode) {
  runSynchronouslyOnVideoProcessingQueue([this, mode] {
    fillMode_ = mode;
    recalculateViewGeometry();
  });
}

void GPUImageView::setBackgroundColor(float red, float green, float blue, float alpha) {
  backgroundColor_ = {red, green, blue, alpha};
}

std::shared_ptr<PixelBuffer> GPUImageView::presentedImage() const {
  std::lock_guard lock(mutex_);
  return presented_;
}

void GPUImageView::createDisplayFramebuffer() {
  const GPUSize size = sizeInPixels();
  const int width = static_cast<int>(std::lround(size.width));
  const int height = static_cast<int>(std::lround(size.height));
  if (width < 1 || height < 1 || !GPUImageContext::useImageProcessingContext()) {
    destroyDisplayFramebuffer();
    return;
  }
  glGenFramebuffers(1, &displayFramebuffer_);
  glBindFramebuffer(GL_FRAMEBUFFER, displayFramebuffer_);
  glGenRenderbuffers(1, &displayRenderbuffer_);
  glBindRenderbuffer(GL_RENDERBUFFER, displayRenderbuffer_);
  glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8_OES, width, height);
  GLint storedWidth = 0, storedHeight = 0;
  glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_WIDTH, &storedWidth);
  glGetRenderbufferParameteriv(GL_RENDERBUFFER, GL_RENDERBUFFER_HEIGHT, &storedHeight);
  if (storedWidth == 0 || storedHeight == 0) {
    destroyDisplayFramebuffer();
    return;
  }
  framebufferSize_ = {double(storedWidth), double(storedHeight)};
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER,
                            displayRenderbuffer_);
  boundsSizeAtFrameBufferEpoch_ = size;
  pool_ = PixelBufferPool::create(storedWidth, storedHeight);
  ring_.clear();
  recalculateViewGeometry();
}

void GPUImageView::destroyDisplayFramebuffer() {
  if (displayFramebuffer_) glDeleteFramebuffers(1, &displayFramebuffer_);
  if (displayRenderbuffer_) glDeleteRenderbuffers(1, &displayRenderbuffer_);
  displayFramebuffer_ = displayRenderbuffer_ = 0;
  framebufferSize_ = {};
}

bool GPUImageView::setDisplayFramebuffer() {
  if (!displayFramebuffer_) createDisplayFramebuffer();
  if (!displayFramebuffer_) return false;
  glBindFramebuffer(GL_FRAMEBUFFER, displayFramebuffer_);
  glViewport(0, 0, static_cast<GLsizei>(framebufferSize_.width),
             static_cast<GLsizei>(framebufferSize_.height));
  return true;
}

void GPUImageView::recalculateViewGeometry() {
  const GPUSize bounds = sizeInPixels();
  float widthScaling = 1.0f, heightScaling = 1.0f;
  const GPUSize inset = aspectFitSize(inputImageSize_, bounds);
  if (!inset.isZero() && !bounds.isZero()) {
    if (fillMode_ == kPreserveAspectRatio) {
      widthScaling = float(inset.width / bounds.width);
      heightScaling = float(inset.height / bounds.height);
    } else if (fillMode_ == kPreserveAspectRatioAndFill) {
      widthScaling = float(bounds.height / inset.height);
      heightScaling = float(bounds.width / inset.width);
    }
  }
  imageVertices_ = {-widthScaling, -heightScaling, widthScaling, -heightScaling,
                    -widthScaling, heightScaling,  widthScaling, heightScaling};
}

void GPUImageView::setInputSize(GPUSize size, int /*index*/) {
  const GPUSize rotated =
      rotationSwapsWidthAndHeight(inputRotation_) ? GPUSize{size.height, size.width} : size;
  if (rotated == inputImageSize_) return;
  inputImageSize_ = rotated;
  recalculateViewGeometry();
}

void GPUImageView::setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer,
                                       int /*index*/) {
  if (inputFramebufferForDisplay_) inputFramebufferForDisplay_->unlock();
  inputFramebufferForDisplay_ = std::move(framebuffer);
  if (inputFramebufferForDisplay_) inputFramebufferForDisplay_->lock();
}

void GPUImageView::newFrameReadyAtTime(double /*time*/, int /*index*/) {
  if (displayProgram_ && setDisplayFramebuffer()) {
    GPUImageContext::setActiveShaderProgram(displayProgram_.get());
    glClearColor(backgroundColor_[0], backgroundColor_[1], backgroundColor_[2],
                 backgroundColor_[3]);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glActiveTexture(GL_TEXTURE4);
    glBindTexture(GL_TEXTURE_2D,
                  inputFramebufferForDisplay_ ? inputFramebufferForDisplay_->texture() : 0);
    glUniform1i(displayInputTextureUniform_, 4);
    glVertexAttribPointer(static_cast<GLuint>(displayPositionAttribute_), 2, GL_FLOAT, GL_FALSE, 0,
                          imageVertices_.data());
    glVertexAttribPointer(static_cast<GLuint>(displayTextureCoordinateAttribute_), 2, GL_FLOAT,
                          GL_FALSE, 0, textureCoordinatesForRotation(inputRotation_));
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    presentFramebuffer();
  }
  if (inputFramebufferForDisplay_) inputFramebufferForDisplay_->unlock();
  inputFramebufferForDisplay_.reset();
}

void GPUImageView::presentFramebuffer() {
  std::shared_ptr<PixelBuffer> image;
  for (auto& candidate : ring_)
    if (candidate.use_count() == 1) image = candidate;
  if (!image) image = ring_.emplace_back(pool_->makeBuffer());
  const int width = image->width(), height = image->height();
  const size_t rowBytes = static_cast<size_t>(width) * 4;
  scratch_.resize(rowBytes * static_cast<size_t>(height));
  glPixelStorei(GL_PACK_ALIGNMENT, 4);
  glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, scratch_.data());
  // GL's first row is the bottom of the view; the screen's image starts at the top.
  for (int y = 0; y < height; ++y) {
    const uint8_t* from = scratch_.data() + rowBytes * static_cast<size_t>(height - 1 - y);
    uint8_t* to = image->row(y);
    for (int x = 0; x < width; ++x) {
      to[4 * x] = from[4 * x + 2];
      to[4 * x + 1] = from[4 * x + 1];
      to[4 * x + 2] = from[4 * x];
      to[4 * x + 3] = from[4 * x + 3];
    }
  }
  std::lock_guard lock(mutex_);
  presented_ = std::move(image);
}

}  // namespace oxelo
