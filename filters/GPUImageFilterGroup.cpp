#include "filters/GPUImageFilterGroup.h"

namespace oxelo {

void GPUImageFilterGroup::addFilter(std::shared_ptr<GPUImageFilter> filter) {
  filters_.push_back(std::move(filter));
}

void GPUImageFilterGroup::setInitialFilters(std::vector<std::shared_ptr<GPUImageFilter>> filters) {
  initialFilters_ = std::move(filters);
}

void GPUImageFilterGroup::setTerminalFilter(std::shared_ptr<GPUImageFilter> filter) {
  terminalFilter_ = std::move(filter);
}

void GPUImageFilterGroup::addTarget(std::shared_ptr<GPUImageInput> target) {
  if (terminalFilter_) terminalFilter_->addTarget(std::move(target));
}

void GPUImageFilterGroup::addTarget(std::shared_ptr<GPUImageInput> target, int textureLocation) {
  if (terminalFilter_) terminalFilter_->addTarget(std::move(target), textureLocation);
}

void GPUImageFilterGroup::removeTarget(const std::shared_ptr<GPUImageInput>& target) {
  if (terminalFilter_) terminalFilter_->removeTarget(target);
}

void GPUImageFilterGroup::removeAllTargets() {
  if (terminalFilter_) terminalFilter_->removeAllTargets();
}

std::vector<std::shared_ptr<GPUImageInput>> GPUImageFilterGroup::targets() const {
  return terminalFilter_ ? terminalFilter_->targets()
                         : std::vector<std::shared_ptr<GPUImageInput>>{};
}

void GPUImageFilterGroup::setTargetToIgnoreForUpdates(GPUImageInput* target) {
  if (terminalFilter_) terminalFilter_->setTargetToIgnoreForUpdates(target);
}

void GPUImageFilterGroup::setFrameProcessingCompletionBlock(FrameProcessingCompletionBlock block) {
  if (terminalFilter_) terminalFilter_->setFrameProcessingCompletionBlock(std::move(block));
}

void GPUImageFilterGroup::forceProcessingAtSize(GPUSize size) {
  for (auto& filter : filters_) filter->forceProcessingAtSize(size);
}

void GPUImageFilterGroup::forceProcessingAtSizeRespectingAspectRatio(GPUSize size) {
  for (auto& filter : filters_) filter->forceProcessingAtSizeRespectingAspectRatio(size);
}

void GPUImageFilterGroup::newFrameReadyAtTime(double time, int index) {
  for (auto& filter : initialFilters_)
    if (filter.get() != inputFilterToIgnoreForUpdates_) filter->newFrameReadyAtTime(time, index);
}

void GPUImageFilterGroup::setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer,
                                              int index) {
  for (auto& filter : initialFilters_) filter->setInputFramebuffer(framebuffer, index);
}

void GPUImageFilterGroup::setInputSize(GPUSize size, int index) {
  for (auto& filter : initialFilters_) filter->setInputSize(size, index);
}

void GPUImageFilterGroup::setInputRotation(uint64_t mode, int index) {
  for (auto& filter : initialFilters_) filter->setInputRotation(mode, index);
}

void GPUImageFilterGroup::endProcessing() {
  if (isEndProcessing_) return;
  isEndProcessing_ = true;
  for (auto& filter : initialFilters_) filter->endProcessing();
}

bool GPUImageFilterGroup::wantsMonochromeInput() const {
  for (auto& filter : initialFilters_)
    if (!filter->wantsMonochromeInput()) return false;
  return true;
}

void GPUImageFilterGroup::setCurrentlyReceivingMonochromeInput(bool value) {
  for (auto& filter : initialFilters_) filter->setCurrentlyReceivingMonochromeInput(value);
}

}  // namespace oxelo
