#pragma once

#include "media/PixelBuffer.h"
#include "encoding/ColourTags.h"

struct AVFrame;
struct SwsContext;

namespace oxelo {

// Turns BGRA pictures into the YCbCr layout an encoder takes (planar 4:2:0
// or NV12, limited range) with the matrix asked for, through libswscale. Not
// thread-safe; one per encoder session.
class BgraConverter {
 public:
  // `pixelFormat`: an AVPixelFormat (AV_PIX_FMT_YUV420P or AV_PIX_FMT_NV12).
  BgraConverter(int width, int height, int pixelFormat, YCbCrMatrix matrix);
  ~BgraConverter();
  BgraConverter(const BgraConverter&) = delete;
  BgraConverter& operator=(const BgraConverter&) = delete;

  bool valid() const { return context_ != nullptr; }
  // Fills `frame`, which must have the converter's size and format and
  // writable buffers. False when the picture is of another size.
  bool convert(const PixelBuffer& picture, AVFrame* frame);

 private:
  int width_;
  int height_;
  SwsContext* context_ = nullptr;
};

}  // namespace oxelo
