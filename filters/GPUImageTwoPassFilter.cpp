#include "filters/GPUImageTwoPassFilter.h"

#include "filters/GLES.h"
#include "filters/GLProgram.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/GPUImageFramebufferCache.h"

namespace oxelo {

GPUImageTwoPassFilter::GPUImageTwoPassFilter(const std::string& firstVertexShader,
                                             const std::string& firstFragmentShader,
                                             const std::string& secondVertexShader,
                                             const std::string& secondFragmentShader)
    : GPUImageFilter(firstVertexShader, firstFragmentShader) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    if (!GPUImageContext::useImageProcessingContext()) return;
    setUpSecondProgram(secondVertexShader, secondFragmentShader);
  });
}

GPUImageTwoPassFilter::GPUImageTwoPassFilter(const std::string& firstFragmentShader,
                                             const std::string& secondFragmentShader)
    : GPUImageTwoPassFilter(kGPUImageVertexShaderString, firstFragmentShader,
                            kGPUImageVertexShaderString, secondFragmentShader) {}

bool GPUImageTwoPassFilter::setUpSecondProgram(const std::string& vertexShader,
                                               const std::string& fragmentShader) {
  auto& context = GPUImageContext::sharedImageProcessingContext();
  secondFilterProgram_ = context.programForVertexShaderString(vertexShader, fragmentShader);
  if (!prepareProgram(*secondFilterProgram_)) {
    secondFilterProgram_.reset();
    return false;
  }
  secondFilterPositionAttribute_ = secondFilterProgram_->attributeIndex("position");
  secondFilterTextureCoordinateAttribute_ =
      secondFilterProgram_->attributeIndex("inputTextureCoordinate");
  secondFilterInputTextureUniform_ = secondFilterProgram_->uniformIndex("inputImageTexture");
  secondFilterInputTextureUniform2_ = secondFilterProgram_->uniformIndex("inputImageTexture2");
  GPUImageContext::setActiveShaderProgram(secondFilterProgram_.get());
  glEnableVertexAttribArray(static_cast<GLuint>(secondFilterPositionAttribute_));
  glEnableVertexAttribArray(static_cast<GLuint>(secondFilterTextureCoordinateAttribute_));
  return true;
}

void GPUImageTwoPassFilter::setUniformsForPass(int /*index*/) { setUniformsForProgramAtIndex(0); }

void GPUImageTwoPassFilter::newFrameReadyAtTime(double time, int /*index*/) {
  renderTwoPasses(defaultVertices(), textureCoordinatesForRotation(inputRotation_));
  informTargetsAboutNewFrameAtTime(time);
}

void GPUImageTwoPassFilter::renderTwoPasses(const float* vertices,
                                            const float* textureCoordinates) {
  if (preventRendering_ || !GPUImageContext::useImageProcessingContext()) {
    unlockFirstInput();
    return;
  }
  auto& cache = GPUImageContext::sharedFramebufferCache();
  const GPUSize size = sizeOfFBO();

  GPUImageContext::setActiveShaderProgram(filterProgram_.get());
  auto first = cache.fetchFramebufferForSize(size, outputTextureOptions, false);
  first->activateFramebuffer();
  if (filterProgram_) setUniformsForPass(0);
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
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
  }
  unlockFirstInput();

  auto second = cache.fetchFramebufferForSize(size, outputTextureOptions, false);
  second->activateFramebuffer();
  GPUImageContext::setActiveShaderProgram(secondFilterProgram_.get());
  if (secondFilterProgram_) setUniformsForPass(1);
  glClearColor(0, 0, 0, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  if (secondFilterProgram_) {
    glActiveTexture(GL_TEXTURE3);
    glBindTexture(GL_TEXTURE_2D, first->texture());
    glUniform1i(secondFilterInputTextureUniform_, 3);
    glVertexAttribPointer(static_cast<GLuint>(secondFilterPositionAttribute_), 2, GL_FLOAT,
                          GL_FALSE, 0, vertices);
    glVertexAttribPointer(static_cast<GLuint>(secondFilterTextureCoordinateAttribute_), 2, GL_FLOAT,
                          GL_FALSE, 0, textureCoordinatesForRotation(kRotationNone));
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
  }
  first->unlock();
  // The second result is the node's output; informTargetsAboutNewFrameAtTime()
  // gives back the lock the fetch took once the targets hold theirs.
  outputFramebuffer_ = std::move(second);
}

}  // namespace oxelo
