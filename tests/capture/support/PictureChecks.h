#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>

#include "filters/GPUImageContext.h"
#include "media/PixelBuffer.h"
#include "platform/camera/CameraFrame.h"

namespace oxelo::test {

// Fails the test, naming the reason, when this machine offers no GL context.
inline void expectGlContext() {
  bool ok = false;
  runSynchronouslyOnVideoProcessingQueue(
      [&] { ok = GPUImageContext::useImageProcessingContext(); });
  ASSERT_TRUE(ok) << GPUImageContext::sharedImageProcessingContext().failureReason();
}

// BGRA bytes of one pixel.
struct Bgra {
  uint8_t b, g, r, a;
  bool operator==(const Bgra&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const Bgra& p) {
  return out << "bgra(" << int(p.b) << "," << int(p.g) << "," << int(p.r) << "," << int(p.a) << ")";
}

inline Bgra pixelAt(const PixelBuffer& picture, int x, int y) {
  const uint8_t* p = picture.row(y) + 4 * x;
  return {p[0], p[1], p[2], p[3]};
}

// An NV12 frame of `colour`'s picture (chroma of each 2 x 2 block's top
// left pixel), stored as a camera of that matrix and range stores it.
inline CameraFramePtr nv12Frame(int width, int height, ColourMatrix matrix, ColourRange range,
                                double time, const std::function<Bgra(int x, int y)>& colour) {
  auto frame = CameraFrame::make(width, height);
  frame->matrix = matrix;
  frame->range = range;
  frame->presentationTime = time;
  auto yuv = [&](int x, int y) {
    const Bgra c = colour(x, y);
    return ycbcrOf(c.r, c.g, c.b, matrix, range);
  };
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) frame->row(0, y)[x] = yuv(x, y).y;
  for (int y = 0; y < frame->chromaHeight(); ++y)
    for (int x = 0; x < frame->chromaWidth(); ++x) {
      const YCbCr v = yuv(2 * x, 2 * y);
      frame->row(1, y)[2 * x] = v.cb;
      frame->row(1, y)[2 * x + 1] = v.cr;
    }
  return frame;
}

inline constexpr Bgra kRed{0, 0, 255, 255}, kGreen{0, 255, 0, 255}, kBlue{255, 0, 0, 255},
    kWhite{255, 255, 255, 255};

}  // namespace oxelo::test
