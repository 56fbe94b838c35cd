// A camera's captured buffers as the V4L2 backend turns them into NV12: NV12
// or NV21 (in one buffer or in two planes), planar 4:2:0 and packed 4:2:2
// rows at a stride the driver chose, and MJPEG pictures through the decoder.
// A camera (or a device that claims to be one) may hand over any bytes in
// any amount.
//
// Input: four bytes that say what the driver announced (the first byte
// modulo 5: 0 NV12, 1 packed 4:2:2, 2 NV12 in two planes, 3 MJPEG, 4 planar
// 4:2:0, the first byte divided by 5 the variant: Cb or Cr first, the packed
// order; width and height 1 to 64; extra bytes per line 0 to 15), then the
// buffer. In two planes the luma plane holds at most its rows and the
// chroma plane the rest, with half the extra bytes per line.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/FuzzSupport.h"
#include "platform/camera/CameraFrame.h"
#include "platform/camera/Nv12Conversion.h"
#include "platform/camera/codec/LibavMjpegDecoder.h"

extern "C" {
#include <libavutil/log.h>
}

using namespace oxelo;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  av_log_set_level(AV_LOG_QUIET);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto decoder = makeLibavMjpegDecoder();
  if (size < 4) return 0;
  const int format = data[0] % 5, variant = data[0] / 5;
  const bool crFirst = variant % 2 == 1;
  const int32_t width = data[1] % 64 + 1, height = data[2] % 64 + 1;
  const int32_t padding = data[3] % 16;
  const uint8_t* buffer = data + 4;
  const size_t bytes = size - 4;
  auto frame = CameraFrame::make(width, height);
  switch (format) {
    case 0: {
      const int32_t bytesPerLine = frame->chromaWidth() * 2 + padding;
      const bool ok = copyNv12(buffer, bytes, bytesPerLine, *frame, crFirst);
      const size_t needed = size_t(bytesPerLine) * size_t(height + frame->chromaHeight() - 1) +
                            size_t(frame->chromaWidth()) * 2;
      OX_FUZZ_CHECK(ok == (bytes >= needed));
      break;
    }
    case 1: {
      const int32_t bytesPerLine = frame->chromaWidth() * 4 + padding;
      const bool ok = packed422ToNv12(buffer, bytes, bytesPerLine,
                                      static_cast<PackedOrder>(variant % 4), *frame);
      const size_t needed =
          size_t(bytesPerLine) * size_t(height - 1) + size_t(frame->chromaWidth()) * 4;
      OX_FUZZ_CHECK(ok == (bytes >= needed));
      break;
    }
    case 2: {
      const PlaneBytes luma{buffer, std::min(bytes, size_t(width + padding) * size_t(height)),
                            width + padding};
      const PlaneBytes chroma{buffer + luma.size, bytes - luma.size,
                              frame->chromaWidth() * 2 + padding / 2};
      const bool ok = copyNv12Planes(luma, chroma, *frame, crFirst);
      const size_t needed = luma.size +
                            size_t(chroma.bytesPerLine) * size_t(frame->chromaHeight() - 1) +
                            size_t(frame->chromaWidth()) * 2;
      OX_FUZZ_CHECK(ok ==
                    (luma.size == size_t(width + padding) * size_t(height) && bytes >= needed));
      break;
    }
    case 4: {
      const int32_t bytesPerLine = frame->chromaWidth() * 2 + padding;
      const bool ok = planar420ToNv12(buffer, bytes, bytesPerLine, crFirst, *frame);
      const size_t chromaStride = size_t(bytesPerLine / 2),
                   chromaRows = size_t(frame->chromaHeight());
      const size_t needed = size_t(bytesPerLine) * size_t(height) +
                            chromaStride * (2 * chromaRows - 1) + size_t(frame->chromaWidth());
      OX_FUZZ_CHECK(ok == (bytes >= needed));
      break;
    }
    default: {
      std::string why;
      if (!decoder->decode(buffer, bytes, *frame, why)) OX_FUZZ_CHECK(!why.empty());
      break;
    }
  }
  return 0;
}
