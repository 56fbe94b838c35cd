#pragma once

#include <memory>

#include "filters/GPUImageOutput.h"
#include "media/PixelBuffer.h"

namespace oxelo {

// A source that uploads BGRA pictures from memory into a texture and hands
// them to its targets: stills, test pictures, and frames that arrive already
// converted. The texture keeps its size until a picture of another size
// comes. Video processing queue, except where said.
class GPUImagePixelBufferInput : public GPUImageOutput {
 public:
  // Any thread: uploads `picture` and sends it through the graph, waiting for
  // the queue.
  void processPixelBuffer(const PixelBuffer& picture, double time);
  // The rotation mode that targets are told to read with; 0 by default.
  void setOutputRotation(uint64_t mode) { outputRotation_ = mode; }

 private:
  uint64_t outputRotation_ = kRotationNone;
};

}  // namespace oxelo
