#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>

#include "filters/GPUImageContext.h"
#include "media/PixelBuffer.h"

// What the tests that draw on the filter graph's GL context share.
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

}  // namespace oxelo::test
