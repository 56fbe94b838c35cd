#include "encoding/BgraConverter.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

namespace oxelo {

namespace {

int swsColorspace(YCbCrMatrix matrix) {
  return matrix == YCbCrMatrix::bt709 ? SWS_CS_ITU709 : SWS_CS_ITU601;
}

}  // namespace

BgraConverter::BgraConverter(int width, int height, int pixelFormat, YCbCrMatrix matrix)
    : width_(width), height_(height) {
  context_ = sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height,
                            static_cast<AVPixelFormat>(pixelFormat), SWS_BILINEAR, nullptr, nullptr,
                            nullptr);
  if (!context_) return;
  const int* coefficients = sws_getCoefficients(swsColorspace(matrix));
  // RGB in is full range; YCbCr out is limited (video) range.
  sws_setColorspaceDetails(context_, coefficients, /*srcRange=*/1, coefficients,
                           /*dstRange=*/0, /*brightness=*/0, /*contrast=*/1 << 16,
                           /*saturation=*/1 << 16);
}

BgraConverter::~BgraConverter() { sws_freeContext(context_); }

bool BgraConverter::convert(const PixelBuffer& picture, AVFrame* frame) {
  if (!context_ || picture.width() != width_ || picture.height() != height_) return false;
  const uint8_t* planes[1] = {picture.data()};
  const int strides[1] = {static_cast<int>(picture.stride())};
  return sws_scale(context_, planes, strides, 0, height_, frame->data, frame->linesize) == height_;
}

}  // namespace oxelo
