#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "filters/GPUImageTypes.h"
#include "media/PixelBuffer.h"

namespace oxelo {

// A pooled render target: a GL texture with a framebuffer object (or a
// texture alone), owned by count. The node that fetched it from the cache
// holds one count and every target that was handed it holds one more; the
// last unlock() gives it back to the cache. Made, drawn, counted and read on
// the video processing queue; the constructor and the destructor wait for it
// when called elsewhere.
class GPUImageFramebuffer : public std::enable_shared_from_this<GPUImageFramebuffer> {
 public:
  GPUImageFramebuffer(GPUSize size, GPUTextureOptions options, bool onlyTexture);
  ~GPUImageFramebuffer();
  GPUImageFramebuffer(const GPUImageFramebuffer&) = delete;
  GPUImageFramebuffer& operator=(const GPUImageFramebuffer&) = delete;

  // Binds the framebuffer object and sets the viewport to the size.
  void activateFramebuffer();

  void lock();
  // The count that reaches 0 returns the object to the shared cache.
  void unlock();
  void clearAllLocks() { framebufferReferenceCount_ = 0; }
  void disableReferenceCounting() { referenceCountingDisabled_ = true; }
  void enableReferenceCounting() { referenceCountingDisabled_ = false; }
  uint64_t referenceCount() const { return framebufferReferenceCount_; }

  // The pixels of the render target as 32-bit BGRA, rows in GL order (the
  // first row of memory is texture coordinate t = 0). Read back into a
  // buffer of this framebuffer's small pool: once each buffer has been made,
  // reading costs no allocation. A buffer still held by someone is never
  // written again; when all are held, one more is made. Null for a
  // texture-only object or a zero size.
  std::shared_ptr<PixelBuffer> pixelBuffer();
  // Replaces the texture's pixels with `picture` (BGRA, its own size); for the
  // texture-only objects that sources upload into.
  void uploadPixels(const PixelBuffer& picture);

  uint32_t texture() const { return texture_; }
  uint32_t framebuffer() const { return framebuffer_; }
  GPUSize size() const { return size_; }
  int pixelWidth() const { return pixelWidth_; }
  int pixelHeight() const { return pixelHeight_; }
  const GPUTextureOptions& textureOptions() const { return textureOptions_; }
  bool missingFramebuffer() const { return missingFramebuffer_; }

 private:
  void generateTexture();
  void generateFramebuffer();

  GPUSize size_;
  int pixelWidth_ = 0;
  int pixelHeight_ = 0;
  GPUTextureOptions textureOptions_;
  bool missingFramebuffer_ = false;
  uint32_t framebuffer_ = 0;
  uint32_t texture_ = 0;
  bool textureHasStorage_ = false;
  uint64_t framebufferReferenceCount_ = 0;
  bool referenceCountingDisabled_ = false;
  std::shared_ptr<PixelBufferPool> pool_;               // made on the first read-back
  std::vector<std::shared_ptr<PixelBuffer>> readBack_;  // buffers of pool_, reused when free
  std::vector<uint8_t> scratch_;                        // rows whose stride differs from GL's
};

}  // namespace oxelo
