#include "platform/camera/VirtualPicture.h"

#include <algorithm>
#include <cstring>

namespace oxelo {

namespace {

struct Rgb {
  uint8_t r, g, b;
};

// Paints luma columns [x0, x1) of a luma row, and the chroma pairs of the
// same columns of a chroma row when `chroma` is given.
void span(uint8_t* luma, uint8_t* chroma, int32_t width, int x0, int x1, YCbCr c) {
  x0 = std::clamp(x0, 0, width);
  x1 = std::clamp(x1, 0, width);
  if (x1 <= x0) return;
  std::memset(luma + x0, c.y, static_cast<size_t>(x1 - x0));
  if (!chroma) return;
  for (int cx = x0 / 2; cx < (x1 + 1) / 2; ++cx) {
    chroma[2 * cx] = c.cb;
    chroma[2 * cx + 1] = c.cr;
  }
}

}  // namespace

int32_t cornerPatchWidth(int32_t width) { return std::max(2, (width / 8) & ~1); }
int32_t cornerPatchHeight(int32_t height) { return std::max(2, (height / 8) & ~1); }

MovingPictureLayout movingPictureLayout(int width, int height, uint64_t frameNumber) {
  MovingPictureLayout m{};
  m.barWidth = std::max(1, width / 16);
  m.barX =
      static_cast<int>((frameNumber * 8) % static_cast<uint64_t>(width + m.barWidth)) - m.barWidth;
  m.side = std::max(1, height / 6);
  m.squareX = width / 2 - m.side / 2;
  m.squareY = static_cast<int>((frameNumber * 4) % static_cast<uint64_t>(height + m.side)) - m.side;
  m.shift = static_cast<uint8_t>(frameNumber);
  return m;
}

namespace {

// Turns the frame's planes half round in place: rows swap top for bottom,
// samples (luma bytes, chroma pairs) left for right.
void turnHalfRound(CameraFrame& frame) {
  for (int plane = 0; plane < 2; ++plane) {
    const int32_t rows = plane == 0 ? frame.height() : frame.chromaHeight();
    const int32_t samples = plane == 0 ? frame.width() : frame.chromaWidth();
    const int32_t size = plane == 0 ? 1 : 2;
    auto swapSamples = [size](uint8_t* a, uint8_t* b) { std::swap_ranges(a, a + size, b); };
    for (int32_t y = 0; y < (rows + 1) / 2; ++y) {
      uint8_t* top = frame.row(plane, y);
      uint8_t* bottom = frame.row(plane, rows - 1 - y);
      for (int32_t x = 0; x < samples; ++x) {
        uint8_t* a = top + x * size;
        uint8_t* b = bottom + (samples - 1 - x) * size;
        // The middle row of an odd height turns onto itself: swap each pair once.
        if (top == bottom && a >= b) break;
        swapSamples(a, b);
      }
    }
  }
}

}  // namespace

void renderVirtualPicture(CameraFrame& frame, uint64_t frameNumber, bool halfTurned) {
  const int32_t w = frame.width();
  const int32_t h = frame.height();
  auto yuv = [&](Rgb c) { return ycbcrOf(c.r, c.g, c.b, frame.matrix, frame.range); };

  const MovingPictureLayout m = movingPictureLayout(w, h, frameNumber);
  const YCbCr bar = yuv({240, 240, 240});
  const YCbCr square = yuv({220, 40, m.squareBlue()});

  const int32_t pw = cornerPatchWidth(w), ph = cornerPatchHeight(h);
  const YCbCr red = yuv({255, 0, 0}), green = yuv({0, 255, 0});
  const YCbCr blue = yuv({0, 0, 255}), white = yuv({255, 255, 255});

  for (int32_t y = 0; y < h; ++y) {
    uint8_t* luma = frame.row(0, y);
    // Chroma rows take the colours of the even luma rows.
    uint8_t* chroma = (y % 2 == 0) ? frame.row(1, y / 2) : nullptr;
    auto level = static_cast<uint8_t>(255 * y / h);
    span(luma, chroma, w, 0, w,
         yuv({level, m.backgroundGreen(), static_cast<uint8_t>(255 - level)}));
    span(luma, chroma, w, m.barX, m.barX + m.barWidth, bar);
    if (y >= m.squareY && y < m.squareY + m.side)
      span(luma, chroma, w, m.squareX, m.squareX + m.side, square);
    if (y < ph) {
      span(luma, chroma, w, 0, pw, red);
      span(luma, chroma, w, w - pw, w, green);
    } else if (y >= h - ph) {
      span(luma, chroma, w, 0, pw, blue);
      span(luma, chroma, w, w - pw, w, white);
    }
  }
  if (halfTurned) turnHalfRound(frame);
}

}  // namespace oxelo
