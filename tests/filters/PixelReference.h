#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "tests/filters/FilterTestSupport.h"

// Painted pictures, colours as the shaders see them (0 to 1), comparison within 1 in 255.
namespace oxelo::test {

struct Rgba {
  double r = 0, g = 0, b = 0, a = 1;
};

inline uint8_t toByte(double value) {
  return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255.0));
}

inline std::shared_ptr<PixelBuffer> paint(int width, int height,
                                          const std::function<Rgba(int, int)>& colour) {
  auto picture = PixelBuffer::create(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Rgba c = colour(x, y);
      uint8_t* p = picture->row(y) + 4 * x;
      p[0] = toByte(c.b), p[1] = toByte(c.g), p[2] = toByte(c.r), p[3] = toByte(c.a);
    }
  }
  return picture;
}

// The pixel as a texture read gives it, the edges repeated outwards.
inline Rgba colourAt(const PixelBuffer& picture, int x, int y) {
  x = std::clamp(x, 0, picture.width() - 1);
  y = std::clamp(y, 0, picture.height() - 1);
  const uint8_t* p = picture.row(y) + 4 * x;
  return {p[2] / 255.0, p[1] / 255.0, p[0] / 255.0, p[3] / 255.0};
}

inline void expectPixelNear(const PixelBuffer& picture, int x, int y, const Rgba& want) {
  const uint8_t* p = picture.row(y) + 4 * x;
  const int got[4] = {p[2], p[1], p[0], p[3]};
  const int expected[4] = {toByte(want.r), toByte(want.g), toByte(want.b), toByte(want.a)};
  for (int k = 0; k < 4; ++k)
    EXPECT_NEAR(got[k], expected[k], 1) << "channel "
                                        << "rgba"[k] << " at " << x << "," << y;
}

// Sends pictures[k] into input k of `node`; what `last` drew.
inline std::shared_ptr<PixelBuffer> runInputs(
    const std::vector<std::shared_ptr<PixelBuffer>>& pictures, std::shared_ptr<GPUImageInput> node,
    GPUImageOutput& last) {
  std::vector<std::shared_ptr<GPUImagePixelBufferInput>> inputs;
  for (size_t k = 0; k < pictures.size(); ++k) {
    inputs.push_back(std::make_shared<GPUImagePixelBufferInput>());
    inputs.back()->addTarget(node, static_cast<int>(k));
  }
  std::shared_ptr<PixelBuffer> result;
  recordOutput(last, &result);
  for (size_t k = 0; k < pictures.size(); ++k) inputs[k]->processPixelBuffer(*pictures[k], 1.0);
  for (auto& input : inputs) input->removeAllTargets();
  last.setFrameProcessingCompletionBlock(nullptr);
  return result;
}

}  // namespace oxelo::test
