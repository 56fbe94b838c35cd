#include "encoding/PictureConverter.h"

#include <cstring>

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
// 0..255 around 128 to 16..240, each rounded to the nearest level:
// 16 + (219 v + 127) / 255 and 16 + (224 v + 15) / 255 (the latter is
// 128 + round((v - 128) 224 / 255)). For x below 255 * 255, x / 255 is
// (x + 1 + (x >> 8)) >> 8, which stays in 16 bits, so the same formula runs
// on a sample and on eight at once (compiler vector types: SSE2 or NEON).
struct RangeScale {
  uint16_t multiplier, addend;
};
constexpr RangeScale kLumaScale{219, 127}, kChromaScale{224, 15};

template <typename Words>
Words toLimitedRange(Words samples, RangeScale scale) {
  const Words x = samples * scale.multiplier + scale.addend;
  return ((x + 1 + (x >> 8)) >> 8) + 16;
}

using Bytes8 = uint8_t __attribute__((vector_size(8)));
using Words8 = uint16_t __attribute__((vector_size(16)));

void limitRow(const uint8_t* in, uint8_t* out, size_t count, RangeScale scale) {
  size_t x = 0;
  for (; x + 8 <= count; x += 8) {
    Bytes8 bytes;
    std::memcpy(&bytes, in + x, sizeof bytes);
    bytes = __builtin_convertvector(toLimitedRange(__builtin_convertvector(bytes, Words8), scale),
                                    Bytes8);
    std::memcpy(out + x, &bytes, sizeof bytes);
  }
  for (; x < count; ++x) out[x] = static_cast<uint8_t>(toLimitedRange<uint16_t>(in[x], scale));
}

// Rows of `rowBytes` samples from `from` to `to` (which may be the same
// memory) brought to limited range with `scale`, or copied as they are
// without one.
void mapRows(const uint8_t* from, size_t fromStride, uint8_t* to, size_t toStride, size_t rowBytes,
             int rows, const RangeScale* scale) {
  for (int y = 0; y < rows; ++y) {
    const uint8_t* in = from + static_cast<size_t>(y) * fromStride;
    uint8_t* out = to + static_cast<size_t>(y) * toStride;
    if (scale)
      limitRow(in, out, rowBytes, *scale);
    else
      std::memcpy(out, in, rowBytes);
  }
}

}  // namespace

void PictureConverter::mapPlanes(const uint8_t* const* from, const size_t* fromStrides,
                                 AVFrame* frame, bool fullRange) const {
  const size_t chromaRow =
      pixelFormat_ == AV_PIX_FMT_NV12 ? (width_ + 1) / 2 * 2 : static_cast<size_t>(width_ + 1) / 2;
  const int planes = pixelFormat_ == AV_PIX_FMT_NV12 ? 2 : 3;
  for (int i = 0; i < planes; ++i) {
    mapRows(from[i], fromStrides[i], frame->data[i], static_cast<size_t>(frame->linesize[i]),
            i == 0 ? static_cast<size_t>(width_) : chromaRow, i == 0 ? height_ : (height_ + 1) / 2,
            fullRange ? (i == 0 ? &kLumaScale : &kChromaScale) : nullptr);
  }
}

void PictureConverter::limitRange(AVFrame* frame) const {
  const uint8_t* planes[PixelBuffer::kMaxPlanes] = {};
  size_t strides[PixelBuffer::kMaxPlanes] = {};
  for (int i = 0; i < PixelBuffer::kMaxPlanes; ++i) {
    planes[i] = frame->data[i];
    strides[i] = static_cast<size_t>(frame->linesize[i]);
  }
  mapPlanes(planes, strides, frame, /*fullRange=*/true);
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
  if (sameMatrix(picture.matrix()) && avFormat(picture.format()) == pixelFormat_) {
    // The codec's layout already: a copy that brings the range down on the way.
    const uint8_t* planes[PixelBuffer::kMaxPlanes] = {};
    size_t strides[PixelBuffer::kMaxPlanes] = {};
    for (int i = 0; i < picture.planeCount(); ++i) {
      planes[i] = picture.plane(i);
      strides[i] = picture.planeStride(i);
    }
    mapPlanes(planes, strides, frame, picture.fullRange());
    return true;
  }
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
