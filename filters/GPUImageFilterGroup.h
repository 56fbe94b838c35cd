#pragma once

#include <memory>
#include <vector>

#include "filters/GPUImageFilter.h"

namespace oxelo {

// Several filters seen as one node. As an input it passes every operation
// on to its initial filters; as an output, to its terminal filter. Video
// processing queue, as GPUImageFilter; addTarget() and the removals from any
// thread.
class GPUImageFilterGroup : public GPUImageOutput, public GPUImageInput {
 public:
  void addFilter(std::shared_ptr<GPUImageFilter> filter);
  void setInitialFilters(std::vector<std::shared_ptr<GPUImageFilter>> filters);
  void setTerminalFilter(std::shared_ptr<GPUImageFilter> filter);
  void setInputFilterToIgnoreForUpdates(GPUImageInput* filter) {
    inputFilterToIgnoreForUpdates_ = filter;
  }
  const std::vector<std::shared_ptr<GPUImageFilter>>& filters() const { return filters_; }

  // GPUImageOutput, to the terminal filter.
  void addTarget(std::shared_ptr<GPUImageInput> target) override;
  void addTarget(std::shared_ptr<GPUImageInput> target, int textureLocation) override;
  void removeTarget(const std::shared_ptr<GPUImageInput>& target) override;
  void removeAllTargets() override;
  std::vector<std::shared_ptr<GPUImageInput>> targets() const override;
  void setTargetToIgnoreForUpdates(GPUImageInput* target) override;
  void setFrameProcessingCompletionBlock(FrameProcessingCompletionBlock block) override;
  // To every member.
  void forceProcessingAtSize(GPUSize size) override;
  void forceProcessingAtSizeRespectingAspectRatio(GPUSize size) override;

  // GPUImageInput, to the initial filters.
  void newFrameReadyAtTime(double time, int index) override;
  void setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer, int index) override;
  int nextAvailableTextureIndex() const override { return 0; }
  void setInputSize(GPUSize size, int index) override;
  void setInputRotation(uint64_t mode, int index) override;
  GPUSize maximumOutputSize() const override { return {}; }
  void endProcessing() override;
  bool wantsMonochromeInput() const override;
  void setCurrentlyReceivingMonochromeInput(bool value) override;

 private:
  std::vector<std::shared_ptr<GPUImageFilter>> filters_;
  std::vector<std::shared_ptr<GPUImageFilter>> initialFilters_;
  std::shared_ptr<GPUImageFilter> terminalFilter_;
  GPUImageInput* inputFilterToIgnoreForUpdates_ = nullptr;
  bool isEndProcessing_ = false;
};

}  // namespace oxelo
