#include "platform/camera/CameraFrame.h"

#include <algorithm>
#include <cmath>

namespace oxelo {

namespace {
size_t alignUp(size_t value, size_t alignment) {
  return alignment <= 1 ? value : (value + alignment - 1) / alignment * alignment;
}
}  // namespace

std::shared_ptr<CameraFrame> CameraFrame::make(int32_t width, int32_t height, size_t alignment) {
  std::shared_ptr<CameraFrame> frame(new CameraFrame);
  frame->width_ = std::max(width, 1);
  frame->height_ = std::max(height, 1);
  size_t lumaStride = alignUp(static_cast<size_t>(frame->width_), alignment);
  size_t chromaStride = alignUp(static_cast<size_t>(frame->chromaWidth()) * 2, alignment);
  size_t lumaSize = lumaStride * static_cast<size_t>(frame->height_);
  size_t chromaSize = chromaStride * static_cast<size_t>(frame->chromaHeight());
  // Room to align the first plane's start as well as its rows.
  // Not cleared: every sample is written by the backend that fills it.
  frame->storage_.reset(new uint8_t[alignment + lumaSize + chromaSize]);
  auto base = reinterpret_cast<uintptr_t>(frame->storage_.get());
  size_t skip = alignUp(base, alignment) - base;
  frame->planes_[0] = frame->storage_.get() + skip;
  frame->planes_[1] = frame->planes_[0] + lumaSize;
  frame->strides_ = {static_cast<int32_t>(lumaStride), static_cast<int32_t>(chromaStride)};
  return frame;
}

std::array<CameraFramePlane, 2> CameraFrame::planes() const {
  return {CameraFramePlane{planes_[0], strides_[0], width_, height_, 1},
          CameraFramePlane{planes_[1], strides_[1], chromaWidth(), chromaHeight(), 2}};
}

YCbCr ycbcrOf(uint8_t r, uint8_t g, uint8_t b, ColourMatrix matrix, ColourRange range) {
  // Luma weights of red and blue; green takes the rest.
  double kr = matrix == ColourMatrix::bt601 ? 0.299 : 0.2126;
  double kb = matrix == ColourMatrix::bt601 ? 0.114 : 0.0722;
  double R = r / 255.0, G = g / 255.0, B = b / 255.0;
  double y = kr * R + (1 - kr - kb) * G + kb * B;
  double cb = (B - y) / (2 * (1 - kb));
  double cr = (R - y) / (2 * (1 - kr));
  auto byte = [](double v) { return static_cast<uint8_t>(std::clamp(std::lround(v), 0L, 255L)); };
  if (range == ColourRange::full)
    return {byte(y * 255), byte(128 + cb * 255), byte(128 + cr * 255)};
  return {byte(16 + y * 219), byte(128 + cb * 224), byte(128 + cr * 224)};
}

}  // namespace oxelo
