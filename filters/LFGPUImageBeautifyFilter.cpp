#include "filters/LFGPUImageBeautifyFilter.h"

namespace oxelo {

LFGPUImageBeautifyFilter::LFGPUImageBeautifyFilter()
    : bilateral_(std::make_shared<GPUImageBilateralFilter>()),
      cannyEdge_(std::make_shared<GPUImageCannyEdgeDetectionFilter>()),
      combination_(std::make_shared<GPUImageCombinationFilter>()),
      hsb_(std::make_shared<GPUImageHSBFilter>()) {
  bilateral_->setDistanceNormalizationFactor(4.0);
  addFilter(bilateral_);
  // The edge group is a group, not a filter: it is kept apart and handed
  // what the members get.
  addFilter(combination_);
  hsb_->adjustBrightness(1.05f);
  bilateral_->addTarget(combination_);  // input 0
  cannyEdge_->addTarget(combination_);  // input 1
  combination_->addTarget(hsb_);
  inputs_ = {bilateral_, cannyEdge_, combination_};
  setInitialFilters({bilateral_, combination_});
  setTerminalFilter(hsb_);
}

void LFGPUImageBeautifyFilter::newFrameReadyAtTime(double time, int index) {
  for (auto& input : inputs_) input->newFrameReadyAtTime(time, indexFor(input.get(), index));
}

void LFGPUImageBeautifyFilter::setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer,
                                                   int index) {
  for (auto& input : inputs_) input->setInputFramebuffer(framebuffer, indexFor(input.get(), index));
}

void LFGPUImageBeautifyFilter::setInputSize(GPUSize size, int index) {
  for (auto& input : inputs_) input->setInputSize(size, indexFor(input.get(), index));
}

void LFGPUImageBeautifyFilter::setInputRotation(uint64_t mode, int index) {
  for (auto& input : inputs_) input->setInputRotation(mode, indexFor(input.get(), index));
}

void LFGPUImageBeautifyFilter::endProcessing() {
  for (auto& input : inputs_) input->endProcessing();
}

void LFGPUImageBeautifyFilter::forceProcessingAtSize(GPUSize size) {
  GPUImageFilterGroup::forceProcessingAtSize(size);
  cannyEdge_->forceProcessingAtSize(size);
}

void LFGPUImageBeautifyFilter::forceProcessingAtSizeRespectingAspectRatio(GPUSize size) {
  GPUImageFilterGroup::forceProcessingAtSizeRespectingAspectRatio(size);
  cannyEdge_->forceProcessingAtSizeRespectingAspectRatio(size);
}

}  // namespace oxelo
