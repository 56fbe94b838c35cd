#include "filters/GPUImageCropFilter.h"

namespace oxelo {

GPUImageCropFilter::GPUImageCropFilter(CropRegion region) { setCropRegion(region); }

void GPUImageCropFilter::setCropRegion(CropRegion region) {
  cropRegion_ = region;
  calculateCropTextureCoordinates();
}

void GPUImageCropFilter::setInputRotation(uint64_t mode, int index) {
  GPUImageFilter::setInputRotation(mode, index);
  calculateCropTextureCoordinates();
}

void GPUImageCropFilter::setInputSize(GPUSize size, int index) {
  if (preventRendering_) return;
  const GPUSize rotated = rotatedSize(size, index);
  originallySuppliedInputSize_ = rotated;
  const GPUSize scaled{rotated.width * cropRegion_.width, rotated.height * cropRegion_.height};
  if (scaled.isZero()) {
    inputTextureSize_ = scaled;
    return;
  }
  if (scaled == inputTextureSize_) return;
  inputTextureSize_ = scaled;
}

void GPUImageCropFilter::calculateCropTextureCoordinates() {
  // The rotation table's corners of the full picture, each 0 or 1, moved to
  // the corners of the region: the region turns as the whole picture would.
  const float xs[2] = {static_cast<float>(cropRegion_.x),
                       static_cast<float>(cropRegion_.x + cropRegion_.width)};
  const float ys[2] = {static_cast<float>(cropRegion_.y),
                       static_cast<float>(cropRegion_.y + cropRegion_.height)};
  const float* full = textureCoordinatesForRotation(inputRotation_);
  for (int i = 0; i < 8; i += 2) {
    cropTextureCoordinates_[i] = xs[full[i] > 0.5f ? 1 : 0];
    cropTextureCoordinates_[i + 1] = ys[full[i + 1] > 0.5f ? 1 : 0];
  }
}

void GPUImageCropFilter::newFrameReadyAtTime(double time, int /*index*/) {
  renderToTexture(defaultVertices(), cropTextureCoordinates_.data());
  informTargetsAboutNewFrameAtTime(time);
}

}  // namespace oxelo
