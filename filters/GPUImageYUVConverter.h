#pragma once

#include <memory>
#include <string>
#include <vector>

#include "media/PixelBuffer.h"

namespace oxelo {

class GLProgram;
class GPUImageFramebuffer;

// Whether converting to 4:2:0 on the GPU pays on the renderer `renderer`
// (GL_RENDERER): not on a software rasteriser (llvmpipe, softpipe, swrast),
// where reading BGRA back and converting on the processor costs less.
// `override` is the value of OXELO_GPU_YUV: "0" or "1" decides instead;
// anything else, or none, leaves it to the renderer.
bool gpuYuvConversionPays(const std::string& renderer, const char* override);

// Turns a drawn frame into the 4:2:0 layout an encoder takes, on the GPU:
// one draw into a render target whose memory, read back as RGBA bytes, is
// already the NV12 or I420 picture (four samples per target pixel: luma
// rows first, then the chroma rows), so the CPU only copies, and not even
// that where the pixel buffer's rows carry no padding. Chroma is the mean of
// each 2 x 2 block. Width must be a multiple of 8 and height of 4. Pixel
// buffers come from a small ring: one still held by someone is never written
// again, and once warm a conversion of one size allocates nothing. Video
// processing queue only.
class GPUImageYUVConverter {
 public:
  GPUImageYUVConverter();
  ~GPUImageYUVConverter();

  // Video processing queue: gpuYuvConversionPays() for this context's
  // renderer and the environment. The decision is logged when it is first
  // made and whenever it changes.
  static bool preferredOnThisMachine();

  // `format` nv12 or i420. Null for BGRA, when the size does not fit the
  // rules above, or without a context.
  std::shared_ptr<PixelBuffer> convert(GPUImageFramebuffer& source, PixelFormat format,
                                       YuvMatrix matrix, bool fullRange);

 private:
  std::shared_ptr<PixelBuffer> freeBuffer(PixelFormat format, int width, int height,
                                          YuvMatrix matrix, bool fullRange);

  std::shared_ptr<GLProgram> program_;
  int positionAttribute_ = -1;
  std::vector<std::shared_ptr<PixelBuffer>> ring_;
  std::vector<uint8_t> scratch_;  // the packed picture where the buffer's rows are padded
};

}  // namespace oxelo
