#pragma once

#include <memory>
#include <vector>

#include "filters/GPUImageBilateralFilter.h"
#include "filters/GPUImageCannyEdgeDetectionFilter.h"
#include "filters/GPUImageCombinationFilter.h"
#include "filters/GPUImageFilterGroup.h"
#include "filters/GPUImageHSBFilter.h"

namespace oxelo {

// Skin smoothing that keeps edges: the input picture goes to a bilateral
// filter (distance factor 4.0), to a Canny edge group and, as input 2, to the
// combination, which smooths skin-coloured pixels off the edges halfway and
// lifts the middle tones; a colour matrix then brightens red, green and blue
// by 1.05. Ten draws per frame. The members are handed the frame in the
// order bilateral, edges, combination, so that the combination draws when the
// original arrives. Video processing queue, as GPUImageFilterGroup.
class LFGPUImageBeautifyFilter : public GPUImageFilterGroup {
 public:
  LFGPUImageBeautifyFilter();

  // GPUImageInput: to the three members that take the group's input, the
  // combination at input 2.
  void newFrameReadyAtTime(double time, int index) override;
  void setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer, int index) override;
  void setInputSize(GPUSize size, int index) override;
  void setInputRotation(uint64_t mode, int index) override;
  void endProcessing() override;
  void forceProcessingAtSize(GPUSize size) override;
  void forceProcessingAtSizeRespectingAspectRatio(GPUSize size) override;

  const std::shared_ptr<GPUImageBilateralFilter>& bilateralFilter() const { return bilateral_; }
  const std::shared_ptr<GPUImageCannyEdgeDetectionFilter>& cannyEdgeFilter() const {
    return cannyEdge_;
  }
  const std::shared_ptr<GPUImageCombinationFilter>& combinationFilter() const {
    return combination_;
  }
  const std::shared_ptr<GPUImageHSBFilter>& hsbFilter() const { return hsb_; }

 private:
  // The index a member that takes the group's input receives it at.
  int indexFor(const GPUImageInput* member, int index) const {
    return member == combination_.get() ? 2 : index;
  }

  std::shared_ptr<GPUImageBilateralFilter> bilateral_;
  std::shared_ptr<GPUImageCannyEdgeDetectionFilter> cannyEdge_;
  std::shared_ptr<GPUImageCombinationFilter> combination_;
  std::shared_ptr<GPUImageHSBFilter> hsb_;
  std::vector<std::shared_ptr<GPUImageInput>> inputs_;  // bilateral, edges, combination
};

}  // namespace oxelo
