#include "capture/MovingPicture.h"

#include <algorithm>

#include "platform/camera/VirtualPicture.h"

namespace oxelo {

namespace {
// One BGRA pixel as a little-endian word: bytes B, G, R, A.
uint32_t bgra(uint8_t r, uint8_t g, uint8_t b) {
  return uint32_t(b) | uint32_t(g) << 8 | uint32_t(r) << 16 | 0xFF000000u;
}

void fillSpan(PixelBuffer& buffer, int y, int x0, int x1, uint32_t colour) {
  x0 = std::clamp(x0, 0, buffer.width());
  x1 = std::clamp(x1, 0, buffer.width());
  auto* row = reinterpret_cast<uint32_t*>(buffer.row(y));
  std::fill(row + x0, row + x1, colour);
}
}  // namespace

void renderMovingPicture(PixelBuffer& buffer, uint64_t frameNumber) {
  const int w = buffer.width();
  const int h = buffer.height();
  if (w <= 0 || h <= 0) return;
  const MovingPictureLayout m = movingPictureLayout(w, h, frameNumber);
  for (int y = 0; y < h; ++y) {
    uint8_t level = static_cast<uint8_t>(255 * y / h);
    fillSpan(buffer, y, 0, w, bgra(level, m.backgroundGreen(), 255 - level));
    fillSpan(buffer, y, m.barX, m.barX + m.barWidth, bgra(240, 240, 240));
    if (y >= m.squareY && y < m.squareY + m.side)
      fillSpan(buffer, y, m.squareX, m.squareX + m.side, bgra(220, 40, m.squareBlue()));
  }
}

}  // namespace oxelo
