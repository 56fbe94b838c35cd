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
  const auto x0 = static_cast<float>(cropRegion_.x);
  const auto y0 = static_cast<float>(cropRegion_.y);
  const auto x1 = static_cast<float>(cropRegion_.x + cropRegion_.width);
  const auto y1 = static_cast<float>(cropRegion_.y + cropRegion_.height);
  // The corners of the region, in the order of the vertices, for each
  // rotation mode as the rotation table turns the full picture.
  switch (inputRotation_) {
    case kRotateLeft:
      cropTextureCoordinates_ = {x1, y0, x1, y1, x0, y0, x0, y1};
      break;
    case kRotateRight:
      cropTextureCoordinates_ = {x0, y1, x0, y0, x1, y1, x1, y0};
      break;
    case kFlipVertical:
      cropTextureCoordinates_ = {x0, y1, x1, y1, x0, y0, x1, y0};
      break;
    case kFlipHorizontal:
      cropTextureCoordinates_ = {x1, y0, x0, y0, x1, y1, x0, y1};
      break;
    case kRotateRightFlipVertical:
      cropTextureCoordinates_ = {x0, y0, x0, y1, x1, y0, x1, y1};
      break;
    case kRotateRightFlipHorizontal:
      cropTextureCoordinates_ = {x1, y1, x1, y0, x0, y1, x0, y0};
      break;
    case kRotate180:
      cropTextureCoordinates_ = {x1, y1, x0, y1, x1, y0, x0, y0};
      break;
    default:
      cropTextureCoordinates_ = {x0, y0, x1, y0, x0, y1, x1, y1};
      break;
  }
}

void GPUImageCropFilter::newFrameReadyAtTime(double time, int /*index*/) {
  renderToTexture(defaultVertices(), cropTextureCoordinates_.data());
  informTargetsAboutNewFrameAtTime(time);
}

}  // namespace oxelo
