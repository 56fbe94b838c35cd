#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "filters/GPUImageContext.h"
#include "filters/GPUImageFilter.h"
#include "filters/GPUImageFramebuffer.h"
#include "filters/GPUImagePixelBufferInput.h"
#include "media/PixelBuffer.h"
#include "tests/support/GlTestSupport.h"

namespace oxelo::test {

// Every pixel differs from its neighbours in every channel: a shift or a blend shows.
inline std::shared_ptr<PixelBuffer> patternPicture(int width, int height) {
  auto picture = PixelBuffer::create(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = picture->row(y) + 4 * x;
      p[0] = static_cast<uint8_t>(x * 3 + y * 5);
      p[1] = static_cast<uint8_t>(x + y * 7 + (x >> 8) * 101);
      p[2] = static_cast<uint8_t>(y + x * 11 + (y >> 8) * 53);
      p[3] = static_cast<uint8_t>(255 - ((x + 2 * y) & 63));
    }
  }
  return picture;
}

// Keeps the read-back of every frame its node draws.
inline void recordOutput(GPUImageOutput& node, std::shared_ptr<PixelBuffer>* last) {
  node.setFrameProcessingCompletionBlock([last](GPUImageOutput* output, double) {
    *last = output->framebufferForOutput()->pixelBuffer();
  });
}

// Sends `picture` through `first` and returns what `last` drew.
inline std::shared_ptr<PixelBuffer> runChain(const PixelBuffer& picture,
                                             std::shared_ptr<GPUImageInput> first,
                                             GPUImageOutput& last, uint64_t rotation = 0) {
  auto input = std::make_shared<GPUImagePixelBufferInput>();
  input->setOutputRotation(rotation);
  input->addTarget(std::move(first));
  std::shared_ptr<PixelBuffer> result;
  recordOutput(last, &result);
  input->processPixelBuffer(picture, 1.0);
  input->removeAllTargets();
  last.setFrameProcessingCompletionBlock(nullptr);
  return result;
}

}  // namespace oxelo::test
