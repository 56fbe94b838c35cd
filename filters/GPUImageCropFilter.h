#pragma once

#include <array>

#include "filters/GPUImageFilter.h"

namespace oxelo {

// A region of a picture in fractions of its width and height.
struct CropRegion {
  double x = 0;
  double y = 0;
  double width = 1;
  double height = 1;
};

// Cuts a region out of its input, 1 to 1: its size is the input's size times
// the region's. Video processing queue, as GPUImageFilter.
class GPUImageCropFilter : public GPUImageFilter {
 public:
  explicit GPUImageCropFilter(CropRegion region = {});

  void setCropRegion(CropRegion region);
  CropRegion cropRegion() const { return cropRegion_; }

  void setInputSize(GPUSize size, int index) override;
  void setInputRotation(uint64_t mode, int index) override;
  void newFrameReadyAtTime(double time, int index) override;

 private:
  void calculateCropTextureCoordinates();

  CropRegion cropRegion_;
  GPUSize originallySuppliedInputSize_;
  std::array<float, 8> cropTextureCoordinates_{};
};

}  // namespace oxelo
