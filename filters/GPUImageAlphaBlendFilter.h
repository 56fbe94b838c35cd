#pragma once

#include "filters/GPUImageTwoInputFilter.h"

namespace oxelo {

// Lays the second input over the first: rgb = mix(first, second, second.a x
// mix), alpha of the first. With mix 0.0 and the second input's check
// disabled it passes the first input on; the chain's preview branch uses it so.
class GPUImageAlphaBlendFilter : public GPUImageTwoInputFilter {
 public:
  GPUImageAlphaBlendFilter();

  void setMix(double mix);
  double mix() const { return mix_; }

 private:
  double mix_ = 0.5;
  int mixUniform_ = -1;
};

}  // namespace oxelo
