#pragma once

#include <memory>
#include <vector>

#include "media/YuvPicture.h"

namespace oxelo {

class GLProgram;
class GPUImageFramebuffer;

// Turns a drawn frame into the 4:2:0 layout an encoder takes, on the GPU:
// one draw into a render target whose memory, read back as RGBA bytes, is
// already the NV12 or I420 picture (four samples per target pixel: luma
// rows first, then the chroma rows), so the CPU only copies. Chroma is the
// mean of each 2 x 2 block. Width must be a multiple of 8 and height of 4.
// Pictures come from a small ring: one still held by someone is never
// written again, and once warm a conversion allocates nothing. Video
// processing queue only.
class GPUImageYUVConverter {
 public:
  GPUImageYUVConverter();
  ~GPUImageYUVConverter();

  // Null when the size does not fit the rules above or there is no context.
  std::shared_ptr<YuvPicture> convert(GPUImageFramebuffer& source, YuvLayout layout,
                                      YuvMatrix matrix, bool fullRange);

 private:
  std::shared_ptr<GLProgram> program_;
  int positionAttribute_ = -1;
  std::vector<std::shared_ptr<YuvPicture>> ring_;
};

}  // namespace oxelo
