#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <ostream>

#include "media/PixelBuffer.h"
#include "platform/camera/CameraFrame.h"
#include "tests/support/GlTestSupport.h"

namespace oxelo::test {

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

// Each of the three colours within `within` of the wanted one.
inline bool near(const Bgra& seen, const Bgra& want, int within = 3) {
  return std::abs(seen.r - want.r) <= within && std::abs(seen.g - want.g) <= within &&
         std::abs(seen.b - want.b) <= within;
}

inline constexpr Bgra kRed{0, 0, 255, 255}, kGreen{0, 255, 0, 255}, kBlue{255, 0, 0, 255},
    kWhite{255, 255, 255, 255};

}  // namespace oxelo::test
