#include "platform/camera/Nv12Conversion.h"

#include <algorithm>
#include <cstring>

namespace oxelo {

namespace {

// Whether `rows` rows of `rowBytes` bytes, `bytesPerLine` apart, fit in `size` bytes.
bool fits(size_t size, int32_t bytesPerLine, int32_t rowBytes, int32_t rows) {
  return bytesPerLine >= rowBytes &&
         size >= static_cast<size_t>(bytesPerLine) * static_cast<size_t>(rows - 1) +
                     static_cast<size_t>(rowBytes);
}

}  // namespace

bool copyNv12Planes(const PlaneBytes& luma, const PlaneBytes& chroma, CameraFrame& frame,
                    bool crFirst) {
  const int32_t w = frame.width(), h = frame.height();
  const int32_t chromaBytes = frame.chromaWidth() * 2;
  if (!fits(luma.size, luma.bytesPerLine, w, h) ||
      !fits(chroma.size, chroma.bytesPerLine, chromaBytes, frame.chromaHeight()))
    return false;
  for (int32_t y = 0; y < h; ++y)
    std::memcpy(frame.row(0, y), luma.data + static_cast<size_t>(y) * luma.bytesPerLine,
                static_cast<size_t>(w));
  for (int32_t y = 0; y < frame.chromaHeight(); ++y) {
    const uint8_t* in = chroma.data + static_cast<size_t>(y) * chroma.bytesPerLine;
    uint8_t* out = frame.row(1, y);
    if (!crFirst) {
      std::memcpy(out, in, static_cast<size_t>(chromaBytes));
      continue;
    }
    for (int32_t x = 0; x < chromaBytes; x += 2) {
      out[x] = in[x + 1];
      out[x + 1] = in[x];
    }
  }
  return true;
}

bool copyNv12(const uint8_t* data, size_t size, int32_t bytesPerLine, CameraFrame& frame,
              bool crFirst) {
  const size_t lumaSize = static_cast<size_t>(bytesPerLine) * frame.height();
  if (size < lumaSize) return false;
  return copyNv12Planes({data, lumaSize, bytesPerLine},
                        {data + lumaSize, size - lumaSize, bytesPerLine}, frame, crFirst);
}

bool planar420ToNv12(const uint8_t* data, size_t size, int32_t bytesPerLine, bool crFirst,
                     CameraFrame& frame) {
  const int32_t chromaStride = bytesPerLine / 2, chromaRows = frame.chromaHeight();
  const size_t lumaSize = static_cast<size_t>(bytesPerLine) * frame.height();
  const size_t chromaSize = static_cast<size_t>(chromaStride) * chromaRows;
  if (!fits(size, bytesPerLine, frame.width(), frame.height()) || size < lumaSize + chromaSize ||
      !fits(size - lumaSize - chromaSize, chromaStride, frame.chromaWidth(), chromaRows))
    return false;
  const uint8_t* first = data + lumaSize;
  const uint8_t* second = first + chromaSize;
  planarToNv12({{data, crFirst ? second : first, crFirst ? first : second},
                {bytesPerLine, chromaStride, chromaStride},
                1,
                1},
               frame);
  return true;
}

bool packed422ToNv12(const uint8_t* data, size_t size, int32_t bytesPerLine, PackedOrder order,
                     CameraFrame& frame) {
  // Where Y0, Cb, Y1 and Cr sit in each group of four bytes.
  static constexpr int kPlaces[4][4] = {{0, 1, 2, 3}, {1, 0, 3, 2}, {0, 3, 2, 1}, {1, 2, 3, 0}};
  const int* place = kPlaces[static_cast<int>(order)];
  const int32_t w = frame.width(), h = frame.height();
  const int32_t pairs = frame.chromaWidth();
  if (!fits(size, bytesPerLine, pairs * 4, h)) return false;
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t* in = data + static_cast<size_t>(y) * bytesPerLine;
    uint8_t* out = frame.row(0, y);
    for (int32_t x = 0; x < w; ++x) out[x] = in[4 * (x / 2) + place[x % 2 == 0 ? 0 : 2]];
  }
  for (int32_t cy = 0; cy < frame.chromaHeight(); ++cy) {
    const uint8_t* top = data + static_cast<size_t>(2 * cy) * bytesPerLine;
    const uint8_t* bottom = 2 * cy + 1 < h ? top + bytesPerLine : top;
    uint8_t* out = frame.row(1, cy);
    for (int32_t cx = 0; cx < pairs; ++cx) {
      for (int c = 0; c < 2; ++c) {
        const int at = 4 * cx + place[c == 0 ? 1 : 3];
        out[2 * cx + c] = static_cast<uint8_t>((top[at] + bottom[at] + 1) / 2);
      }
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
