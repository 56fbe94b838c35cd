#pragma once

#include "filters/GPUImageFilter.h"

namespace oxelo {

// The pass-through: copies colour and alpha. It stands in the chain when no
// beauty is wanted, and as the output node from which the encoder's pictures
// are read.
class LFGPUImageEmptyFilter : public GPUImageFilter {
 public:
  LFGPUImageEmptyFilter();
};

}  // namespace oxelo
