#pragma once

#include "filters/GPUImageFilter.h"

namespace oxelo {

// The pass-through: copies colour and alpha. It stands in the chain when no
// beauty is wanted, and as the output node from which the encoder's pictures
// are read.
//
// A copy that changes nothing is not drawn: when the input comes unturned,
// at the size this node would draw and in a framebuffer (not as a bare
// uploaded texture), the input framebuffer itself is
// handed on (with the lock this node held on it), so the chain pays for one
// draw fewer. Video processing queue, as every frame operation.
class LFGPUImageEmptyFilter : public GPUImageFilter {
 public:
  LFGPUImageEmptyFilter();

  void newFrameReadyAtTime(double time, int index) override;
  // Frames handed on undrawn; for statistics and tests.
  uint64_t framesPassedThrough() const { return framesPassedThrough_; }

 private:
  uint64_t framesPassedThrough_ = 0;
};

}  // namespace oxelo
