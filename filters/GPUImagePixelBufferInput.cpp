#include "filters/GPUImagePixelBufferInput.h"

#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/GPUImageFramebufferCache.h"

namespace oxelo {

void GPUImagePixelBufferInput::processPixelBuffer(const PixelBuffer& picture, double time) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    const GPUSize size{static_cast<double>(picture.width()), static_cast<double>(picture.height())};
    outputFramebuffer_ = GPUImageContext::sharedFramebufferCache().fetchFramebufferForSize(
        size, outputTextureOptions, /*onlyTexture=*/true);
    outputFramebuffer_->uploadPixels(picture);
    for (size_t i = 0; i < targets_.size(); ++i) {
      if (!targets_[i]->enabled()) continue;
      targets_[i]->setInputRotation(outputRotation_, targetTextureIndices_[i]);
      if (targets_[i].get() != targetToIgnoreForUpdates_)
        targets_[i]->setInputSize(size, targetTextureIndices_[i]);
      targets_[i]->setInputFramebuffer(outputFramebuffer_, targetTextureIndices_[i]);
    }
    outputFramebuffer_->unlock();
    outputFramebuffer_.reset();
    for (size_t i = 0; i < targets_.size(); ++i) {
      if (!targets_[i]->enabled() || targets_[i].get() == targetToIgnoreForUpdates_) continue;
      targets_[i]->newFrameReadyAtTime(time, targetTextureIndices_[i]);
    }
  });
}

}  // namespace oxelo
