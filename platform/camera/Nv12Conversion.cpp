#include "platform/camera/Nv12Conversion.h"

#include <algorithm>
#include <cstring>

namespace oxelo {

bool copyNv12Planes(const PlaneBytes& luma, const PlaneBytes& chroma, CameraFrame& frame) {
  const int32_t w = frame.width(), h = frame.height();
  const int32_t chromaBytes = frame.chromaWidth() * 2;
  auto covers = [](const PlaneBytes& plane, int32_t rowBytes, int32_t rows) {
    return plane.bytesPerLine >= rowBytes &&
           plane.size >=
               static_cast<size_t>(plane.bytesPerLine) * (rows - 1) + static_cast<size_t>(rowBytes);
  };
  if (!covers(luma, w, h) || !covers(chroma, chromaBytes, frame.chromaHeight())) return false;
  for (int32_t y = 0; y < h; ++y)
    std::memcpy(frame.row(0, y), luma.data + static_cast<size_t>(y) * luma.bytesPerLine,
                static_cast<size_t>(w));
  for (int32_t y = 0; y < frame.chromaHeight(); ++y)
    std::memcpy(frame.row(1, y), chroma.data + static_cast<size_t>(y) * chroma.bytesPerLine,
                static_cast<size_t>(chromaBytes));
  return true;
}

bool copyNv12(const uint8_t* data, size_t size, int32_t bytesPerLine, CameraFrame& frame) {
  const size_t lumaSize = static_cast<size_t>(bytesPerLine) * frame.height();
  if (size < lumaSize) return false;
  return copyNv12Planes({data, lumaSize, bytesPerLine},
                        {data + lumaSize, size - lumaSize, bytesPerLine}, frame);
}

bool yuyvToNv12(const uint8_t* data, size_t size, int32_t bytesPerLine, CameraFrame& frame) {
  const int32_t w = frame.width(), h = frame.height();
  const int32_t pairs = frame.chromaWidth();
  if (bytesPerLine < pairs * 4) return false;
  if (size < static_cast<size_t>(bytesPerLine) * (h - 1) + static_cast<size_t>(pairs) * 4)
    return false;
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t* in = data + static_cast<size_t>(y) * bytesPerLine;
    uint8_t* out = frame.row(0, y);
    for (int32_t x = 0; x < w; ++x) out[x] = in[2 * x];
  }
  for (int32_t cy = 0; cy < frame.chromaHeight(); ++cy) {
    const uint8_t* top = data + static_cast<size_t>(2 * cy) * bytesPerLine;
    const uint8_t* bottom = 2 * cy + 1 < h ? top + bytesPerLine : top;
    uint8_t* out = frame.row(1, cy);
    for (int32_t cx = 0; cx < pairs; ++cx) {
      out[2 * cx] = static_cast<uint8_t>((top[4 * cx + 1] + bottom[4 * cx + 1] + 1) / 2);
      out[2 * cx + 1] = static_cast<uint8_t>((top[4 * cx + 3] + bottom[4 * cx + 3] + 1) / 2);
    }
  }
  return true;
}

void planarToNv12(const PlanarPicture& picture, CameraFrame& frame) {
  const int32_t w = frame.width(), h = frame.height();
  for (int32_t y = 0; y < h; ++y)
    std::memcpy(frame.row(0, y), picture.planes[0] + static_cast<size_t>(y) * picture.strides[0],
                static_cast<size_t>(w));
  // The source chroma samples under luma columns [2cx, 2cx + 1] and rows
  // [2cy, 2cy + 1], clamped to the picture.
  const int32_t srcW = (w + (1 << picture.shiftX) - 1) >> picture.shiftX;
  const int32_t srcH = (h + (1 << picture.shiftY) - 1) >> picture.shiftY;
  const int stepX = picture.shiftX == 0 ? 2 : 1;  // source samples per NV12 sample
  const int stepY = picture.shiftY == 0 ? 2 : 1;
  for (int32_t cy = 0; cy < frame.chromaHeight(); ++cy) {
    uint8_t* out = frame.row(1, cy);
    int32_t y0 = std::min(cy * stepY, srcH - 1), y1 = std::min(cy * stepY + stepY - 1, srcH - 1);
    for (int32_t cx = 0; cx < frame.chromaWidth(); ++cx) {
      int32_t x0 = std::min(cx * stepX, srcW - 1), x1 = std::min(cx * stepX + stepX - 1, srcW - 1);
      for (int c = 0; c < 2; ++c) {
        const uint8_t* plane = picture.planes[1 + c];
        int32_t stride = picture.strides[1 + c];
        auto at = [&](int32_t x, int32_t y) {
          return int{plane[static_cast<size_t>(y) * stride + x]};
        };
        int sum = at(x0, y0) + at(x1, y0) + at(x0, y1) + at(x1, y1);
        out[2 * cx + c] = static_cast<uint8_t>((sum + 2) / 4);
      }
    }
  }
}

}  // namespace oxelo
