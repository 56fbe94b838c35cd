#include "filters/GPUImageFramebuffer.h"

#include <cmath>
#include <cstring>

#include "filters/GLES.h"
#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebufferCache.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

bool hasGlExtension(const char* name) {
  const auto* list = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
  return list && std::strstr(list, name) != nullptr;
}

// Whether the context reads back and uploads BGRA itself; else we swap the
// red and blue bytes on the CPU. Video processing queue.
bool readsBgra() {
  static const bool answer = hasGlExtension("GL_EXT_read_format_bgra");
  return answer;
}
bool uploadsBgra() {
  static const bool answer = hasGlExtension("GL_EXT_texture_format_BGRA8888");
  return answer;
}

void swapRedAndBlue(uint8_t* row, int width) {
  for (int x = 0; x < width; ++x) std::swap(row[4 * x], row[4 * x + 2]);
}

}  // namespace

GPUImageFramebuffer::GPUImageFramebuffer(GPUSize size, GPUTextureOptions options, bool onlyTexture)
    : size_(size),
      pixelWidth_(static_cast<int>(std::lround(size.width))),
      pixelHeight_(static_cast<int>(std::lround(size.height))),
      textureOptions_(options),
      missingFramebuffer_(onlyTexture) {
  runSynchronouslyOnVideoProcessingQueue([this] {
    if (!GPUImageContext::useImageProcessingContext()) return;
    if (missingFramebuffer_) {
      generateTexture();
      return;
    }
    generateFramebuffer();
  });
}

GPUImageFramebuffer::~GPUImageFramebuffer() {
  const GLuint framebuffer = framebuffer_;
  const GLuint texture = texture_;
  runSynchronouslyOnVideoProcessingQueue([framebuffer, texture] {
    if (!GPUImageContext::useImageProcessingContext()) return;
    if (framebuffer) glDeleteFramebuffers(1, &framebuffer);
    if (texture) glDeleteTextures(1, &texture);
  });
}

void GPUImageFramebuffer::generateTexture() {
  glActiveTexture(GL_TEXTURE1);
  glGenTextures(1, &texture_);
  glBindTexture(GL_TEXTURE_2D, texture_);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER,
                  static_cast<GLint>(textureOptions_.minFilter));
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER,
                  static_cast<GLint>(textureOptions_.magFilter));
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, static_cast<GLint>(textureOptions_.wrapS));
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, static_cast<GLint>(textureOptions_.wrapT));
}

void GPUImageFramebuffer::generateFramebuffer() {
  glGenFramebuffers(1, &framebuffer_);
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  generateTexture();
  // OpenGL ES 2 allocates with the same internal and external format; the
  // options' BGRA is the layout of the read-back, not of the texture.
  glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(textureOptions_.internalFormat), pixelWidth_,
               pixelHeight_, 0, textureOptions_.internalFormat, textureOptions_.type, nullptr);
  textureHasStorage_ = true;
  glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture_, 0);
  if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
    oxlog("FBO size: {:f}, {:f}", size_.width, size_.height);
  glBindTexture(GL_TEXTURE_2D, 0);
}

void GPUImageFramebuffer::activateFramebuffer() {
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  glViewport(0, 0, pixelWidth_, pixelHeight_);
}

void GPUImageFramebuffer::lock() {
  if (referenceCountingDisabled_) return;
  ++framebufferReferenceCount_;
}

void GPUImageFramebuffer::unlock() {
  if (referenceCountingDisabled_) return;
  if (framebufferReferenceCount_ == 0) {
    logLine("framebuffer unlocked with no count left; the unlock is ignored");
    return;
  }
  if (--framebufferReferenceCount_ == 0)
    GPUImageContext::sharedFramebufferCache().returnFramebufferToCache(shared_from_this());
}

std::shared_ptr<PixelBuffer> GPUImageFramebuffer::pixelBuffer() {
  if (missingFramebuffer_ || pixelWidth_ < 1 || pixelHeight_ < 1) return nullptr;
  if (!GPUImageContext::useImageProcessingContext()) return nullptr;
  std::shared_ptr<PixelBuffer> buffer;
  for (auto& candidate : readBack_) {
    // Only we hold it: nobody can take a new hold, so writing it is safe.
    if (candidate.use_count() == 1) {
      buffer = candidate;
      break;
    }
  }
  if (!buffer) {
    if (!pool_) pool_ = PixelBufferPool::create(pixelWidth_, pixelHeight_);
    buffer = pool_->makeBuffer();
    readBack_.push_back(buffer);
  }
  const bool bgra = readsBgra();
  const GLenum format = bgra ? GL_BGRA_EXT : GL_RGBA;
  const size_t rowBytes = static_cast<size_t>(pixelWidth_) * 4;
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  glPixelStorei(GL_PACK_ALIGNMENT, 4);
  if (buffer->stride() == rowBytes) {
    glReadPixels(0, 0, pixelWidth_, pixelHeight_, format, GL_UNSIGNED_BYTE, buffer->data());
  } else {
    scratch_.resize(rowBytes * static_cast<size_t>(pixelHeight_));
    glReadPixels(0, 0, pixelWidth_, pixelHeight_, format, GL_UNSIGNED_BYTE, scratch_.data());
    for (int y = 0; y < pixelHeight_; ++y)
      std::memcpy(buffer->row(y), scratch_.data() + rowBytes * static_cast<size_t>(y), rowBytes);
  }
  if (!bgra)
    for (int y = 0; y < pixelHeight_; ++y) swapRedAndBlue(buffer->row(y), pixelWidth_);
  return buffer;
}

void GPUImageFramebuffer::uploadPixels(const PixelBuffer& picture) {
  if (!GPUImageContext::useImageProcessingContext()) return;
  const int width = picture.width();
  const int height = picture.height();
  const size_t rowBytes = static_cast<size_t>(width) * 4;
  const uint8_t* pixels = picture.data();
  const bool bgra = uploadsBgra();
  if (picture.stride() != rowBytes || !bgra) {
    scratch_.resize(rowBytes * static_cast<size_t>(height));
    for (int y = 0; y < height; ++y) {
      uint8_t* row = scratch_.data() + rowBytes * static_cast<size_t>(y);
      std::memcpy(row, picture.row(y), rowBytes);
      if (!bgra) swapRedAndBlue(row, width);
    }
    pixels = scratch_.data();
  }
  const GLenum format = bgra ? GL_BGRA_EXT : GL_RGBA;
  glActiveTexture(GL_TEXTURE1);
  glBindTexture(GL_TEXTURE_2D, texture_);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
  if (!textureHasStorage_ || width != pixelWidth_ || height != pixelHeight_) {
    glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(format), width, height, 0, format,
                 GL_UNSIGNED_BYTE, pixels);
    textureHasStorage_ = true;
  } else {
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, format, GL_UNSIGNED_BYTE, pixels);
  }
}

}  // namespace oxelo
