#include "filters/GPUImageOutput.h"

#include <algorithm>

#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"

namespace oxelo {

GPUImageOutput::GPUImageOutput() = default;

GPUImageOutput::~GPUImageOutput() = default;

void GPUImageOutput::addTarget(std::shared_ptr<GPUImageInput> target) {
  if (!target) return;
  const int index = target->nextAvailableTextureIndex();
  addTarget(target, index);
  if (target->shouldIgnoreUpdatesToThisTarget()) targetToIgnoreForUpdates_ = target.get();
}

void GPUImageOutput::addTarget(std::shared_ptr<GPUImageInput> target, int textureLocation) {
  if (!target) return;
  runSynchronouslyOnVideoProcessingQueue([&] {
    if (std::find(targets_.begin(), targets_.end(), target) != targets_.end()) return;
    cachedMaximumOutputSize_ = {};
    setInputFramebufferForTarget(*target, textureLocation);
    targets_.push_back(target);
    targetTextureIndices_.push_back(textureLocation);
    allTargetsWantMonochromeData_ = allTargetsWantMonochromeData_ && target->wantsMonochromeInput();
  });
}

void GPUImageOutput::removeTarget(const std::shared_ptr<GPUImageInput>& target) {
  runSynchronouslyOnVideoProcessingQueue([&] {
    auto found = std::find(targets_.begin(), targets_.end(), target);
    if (found == targets_.end()) return;
    if (targetToIgnoreForUpdates_ == target.get()) targetToIgnoreForUpdates_ = nullptr;
    cachedMaximumOutputSize_ = {};
    const auto position = found - targets_.begin();
    const int index = targetTextureIndices_[static_cast<size_t>(position)];
    target->setInputSize({}, index);
    target->setInputRotation(kRotationNone, index);
    targets_.erase(found);
    targetTextureIndices_.erase(targetTextureIndices_.begin() + position);
    target->endProcessing();
  });
}

void GPUImageOutput::removeAllTargets() {
  runSynchronouslyOnVideoProcessingQueue([&] {
    cachedMaximumOutputSize_ = {};
    for (size_t i = 0; i < targets_.size(); ++i) {
      targets_[i]->setInputSize({}, targetTextureIndices_[i]);
      targets_[i]->setInputRotation(kRotationNone, targetTextureIndices_[i]);
    }
    targets_.clear();
    targetTextureIndices_.clear();
    targetToIgnoreForUpdates_ = nullptr;
    allTargetsWantMonochromeData_ = true;
  });
}

std::vector<std::shared_ptr<GPUImageInput>> GPUImageOutput::targets() const {
  std::vector<std::shared_ptr<GPUImageInput>> copy;
  runSynchronouslyOnVideoProcessingQueue([&] { copy = targets_; });
  return copy;
}

void GPUImageOutput::setInputFramebufferForTarget(GPUImageInput& target, int index) {
  target.setInputFramebuffer(framebufferForOutput(), index);
}

void GPUImageOutput::forceProcessingAtSize(GPUSize) {}

void GPUImageOutput::forceProcessingAtSizeRespectingAspectRatio(GPUSize) {}

void GPUImageOutput::setFrameProcessingCompletionBlock(FrameProcessingCompletionBlock block) {
  frameProcessingCompletionBlock_ = std::move(block);
}

}  // namespace oxelo
