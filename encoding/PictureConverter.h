#pragma once

#include <memory>

#include "encoding/ColourTags.h"
#include "media/PixelBuffer.h"

struct AVFrame;
struct SwsContext;

namespace oxelo {

// Brings pictures of any PixelFormat to the YCbCr layout an encoder takes
// (planar 4:2:0 or NV12), in limited range and in the matrix asked for,
// through libswscale:
//   BGRA                          one step, with the matrix asked for;
//   NV12/I420 in that matrix      the layout by libswscale, the range by
//                                 a pass of our own over the samples, as
//                                 libswscale changes no range between
//                                 YCbCr formats;
//   NV12/I420 in another matrix   two steps through BGRA, as libswscale
//                                 changes no matrix between YCbCr formats.
// A picture that already is in the layout, range and matrix asked for needs
// no conversion at all (passesThrough()). Not thread-safe; one per encoder
// session.
class PictureConverter {
 public:
  // `pixelFormat`: an AVPixelFormat (AV_PIX_FMT_YUV420P or AV_PIX_FMT_NV12).
  PictureConverter(int width, int height, int pixelFormat, YCbCrMatrix matrix);
  ~PictureConverter();
  PictureConverter(const PictureConverter&) = delete;
  PictureConverter& operator=(const PictureConverter&) = delete;

  // The BGRA path opened; the others open on first use.
  bool valid() const { return fromBgra_ != nullptr; }
  // The picture has the converter's size, layout, range and matrix: its
  // planes can go to the encoder as they are.
  bool passesThrough(const PixelBuffer& picture) const;
  // Fills `frame`, which must have the converter's size and format and
  // writable buffers. False when the picture is of another size or a step
  // could not be set up.
  bool convert(const PixelBuffer& picture, AVFrame* frame);

 private:
  // What the YCbCr step was set up for.
  struct YuvSource {
    PixelFormat format = PixelFormat::bgra;
    YuvMatrix matrix = YuvMatrix::bt709;
    bool fullRange = false;
    friend bool operator==(const YuvSource&, const YuvSource&) = default;
  };
  bool sameMatrix(YuvMatrix matrix) const;
  SwsContext* yuvStep(const PixelBuffer& picture);
  bool scaleBgra(const PixelBuffer& picture, AVFrame* frame);
  void limitRange(AVFrame* frame) const;  // frame: full-range samples in the output layout
  // Planes in the output layout into `frame`, brought to limited range when
  // `fullRange`.
  void mapPlanes(const uint8_t* const* from, const size_t* fromStrides, AVFrame* frame,
                 bool fullRange) const;

  const int width_;
  const int height_;
  const int pixelFormat_;
  const YCbCrMatrix matrix_;
  SwsContext* fromBgra_ = nullptr;
  SwsContext* fromYuv_ = nullptr;  // to pixelFormat_, or to BGRA where the matrix changes
  YuvSource yuvSource_;
  std::shared_ptr<PixelBuffer> between_;  // the BGRA picture of a matrix change
};

}  // namespace oxelo
