#include "encoding/PictureConverter.h"

#include <array>
#include <cmath>
#include <cstddef>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

namespace oxelo {

namespace {

const int* coefficients(bool bt709) {
  return sws_getCoefficients(bt709 ? SWS_CS_ITU709 : SWS_CS_ITU601);
}

AVPixelFormat avFormat(PixelFormat format) {
  switch (format) {
    case PixelFormat::bgra:
      return AV_PIX_FMT_BGRA;
    case PixelFormat::nv12:
      return AV_PIX_FMT_NV12;
    case PixelFormat::i420:
      return AV_PIX_FMT_YUV420P;
  }
  return AV_PIX_FMT_NONE;
}

SwsContext* makeContext(int width, int height, AVPixelFormat from, AVPixelFormat to,
                        const int* fromMatrix, bool fromFull, const int* toMatrix, bool toFull) {
  SwsContext* context = sws_getContext(width, height, from, width, height, to, SWS_BILINEAR,
                                       nullptr, nullptr, nullptr);
  if (!context) return nullptr;
  sws_setColorspaceDetails(context, fromMatrix, fromFull ? 1 : 0, toMatrix, toFull ? 1 : 0,
                           /*brightness=*/0, /*contrast=*/1 << 16, /*saturation=*/1 << 16);
  return context;
}

int scale(SwsContext* context, const PixelBuffer& picture, uint8_t* const* to,
          const int* toStrides) {
  const uint8_t* planes[PixelBuffer::kMaxPlanes] = {};
  int strides[PixelBuffer::kMaxPlanes] = {};
  for (int i = 0; i < picture.planeCount(); ++i) {
    planes[i] = picture.plane(i);
    strides[i] = static_cast<int>(picture.planeStride(i));
  }
  return sws_scale(context, planes, strides, 0, picture.height(), to, toStrides);
}

// Full-range samples to limited range: luma 0..255 to 16..235, chroma
// 0..255 around 128 to 16..240.
struct RangeTables {
  std::array<uint8_t, 256> luma{};
  std::array<uint8_t, 256> chroma{};
  RangeTables() {
    for (int v = 0; v < 256; ++v) {
      luma[static_cast<size_t>(v)] = static_cast<uint8_t>(16 + (v * 219 + 127) / 255);
      chroma[static_cast<size_t>(v)] =
          static_cast<uint8_t>(128 + std::lround((v - 128) * 224.0 / 255.0));
    }
  }
};

void mapPlane(uint8_t* plane, int stride, int rowBytes, int rows,
              const std::array<uint8_t, 256>& table) {
  for (int y = 0; y < rows; ++y) {
    uint8_t* row = plane + static_cast<ptrdiff_t>(y) * stride;
    for (int x = 0; x < rowBytes; ++x) row[x] = table[row[x]];
  }
}

}  // namespace

void PictureConverter::limitRange(AVFrame* frame) const {
  static const RangeTables tables;
  mapPlane(frame->data[0], frame->linesize[0], width_, height_, tables.luma);
  const int rows = (height_ + 1) / 2;
  if (pixelFormat_ == AV_PIX_FMT_NV12) {
    mapPlane(frame->data[1], frame->linesize[1], (width_ + 1) / 2 * 2, rows, tables.chroma);
    return;
  }
  for (int i = 1; i <= 2; ++i)
    mapPlane(frame->data[i], frame->linesize[i], (width_ + 1) / 2, rows, tables.chroma);
}

PictureConverter::PictureConverter(int width, int height, int pixelFormat, YCbCrMatrix matrix)
    : width_(width), height_(height), pixelFormat_(pixelFormat), matrix_(matrix) {
  // RGB in is full range; YCbCr out is limited (video) range.
  const int* out = coefficients(matrix == YCbCrMatrix::bt709);
  fromBgra_ = makeContext(width, height, AV_PIX_FMT_BGRA, static_cast<AVPixelFormat>(pixelFormat),
                          out, /*fromFull=*/true, out, /*toFull=*/false);
}

PictureConverter::~PictureConverter() {
  sws_freeContext(fromBgra_);
  sws_freeContext(fromYuv_);
}

bool PictureConverter::sameMatrix(YuvMatrix matrix) const {
  return (matrix == YuvMatrix::bt709) == (matrix_ == YCbCrMatrix::bt709);
}

bool PictureConverter::passesThrough(const PixelBuffer& picture) const {
  return picture.isYuv() && picture.width() == width_ && picture.height() == height_ &&
         avFormat(picture.format()) == pixelFormat_ && !picture.fullRange() &&
         sameMatrix(picture.matrix());
}

SwsContext* PictureConverter::yuvStep(const PixelBuffer& picture) {
  const YuvSource source{picture.format(), picture.matrix(), picture.fullRange()};
  if (fromYuv_ && source == yuvSource_) return fromYuv_;
  sws_freeContext(fromYuv_);
  yuvSource_ = source;
  const int* in = coefficients(picture.matrix() == YuvMatrix::bt709);
  if (sameMatrix(picture.matrix())) {
    // Layout only: the range is brought down apart (limitRange()), as
    // libswscale does not change it between YCbCr formats.
    fromYuv_ = makeContext(width_, height_, avFormat(picture.format()),
                           static_cast<AVPixelFormat>(pixelFormat_), in, /*fromFull=*/false, in,
                           /*toFull=*/false);
    return fromYuv_;
  }
  fromYuv_ = makeContext(width_, height_, avFormat(picture.format()), AV_PIX_FMT_BGRA, in,
                         picture.fullRange(), in, /*toFull=*/true);
  if (!between_) between_ = PixelBuffer::create(width_, height_);
  return fromYuv_;
}

bool PictureConverter::scaleBgra(const PixelBuffer& picture, AVFrame* frame) {
  return fromBgra_ && scale(fromBgra_, picture, frame->data, frame->linesize) == height_;
}

bool PictureConverter::convert(const PixelBuffer& picture, AVFrame* frame) {
  if (picture.width() != width_ || picture.height() != height_) return false;
  if (!picture.isYuv()) return scaleBgra(picture, frame);
  SwsContext* step = yuvStep(picture);
  if (!step) return false;
  if (sameMatrix(picture.matrix())) {
    if (scale(step, picture, frame->data, frame->linesize) != height_) return false;
    if (picture.fullRange()) limitRange(frame);
    return true;
  }
  uint8_t* const rgb[1] = {between_->data()};
  const int rgbStride[1] = {static_cast<int>(between_->stride())};
  return scale(step, picture, rgb, rgbStride) == height_ && scaleBgra(*between_, frame);
}

}  // namespace oxelo
