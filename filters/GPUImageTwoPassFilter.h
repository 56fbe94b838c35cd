#pragma once

#include <memory>
#include <string>

#include "filters/GPUImageFilter.h"

namespace oxelo {

// A filter that draws twice per frame: the first program from the input into
// one framebuffer of the cache, the second program from that into another,
// which is what the targets receive. The first framebuffer goes back to the
// cache before the frame leaves this node. The second pass clears to opaque
// black and reads without rotation (the first pass turned the picture).
// When both stages have the same texts, the cache gives one program for
// both, so the uniform values kept by GPUImageFilter serve both passes and
// only what setUniformsForPass() sets differs between them. Video processing
// queue, as GPUImageFilter.
class GPUImageTwoPassFilter : public GPUImageFilter {
 public:
  GPUImageTwoPassFilter(const std::string& firstVertexShader,
                        const std::string& firstFragmentShader,
                        const std::string& secondVertexShader,
                        const std::string& secondFragmentShader);
  // Both stages with the default vertex text.
  GPUImageTwoPassFilter(const std::string& firstFragmentShader,
                        const std::string& secondFragmentShader);

  void newFrameReadyAtTime(double time, int index) override;
  GLProgram* secondFilterProgram() const { return secondFilterProgram_.get(); }

 protected:
  // Video processing queue: fetches the second program for these texts and
  // looks up its attributes and uniforms; false when it does not link.
  bool setUpSecondProgram(const std::string& vertexShader, const std::string& fragmentShader);
  // Video processing queue, with the pass's program active: the kept uniform
  // values, then what is particular to pass `index` (0 or 1).
  virtual void setUniformsForPass(int index);
  void renderTwoPasses(const float* vertices, const float* textureCoordinates);

  std::shared_ptr<GLProgram> secondFilterProgram_;
  int secondFilterPositionAttribute_ = -1;
  int secondFilterTextureCoordinateAttribute_ = -1;
  int secondFilterInputTextureUniform_ = -1;
  int secondFilterInputTextureUniform2_ = -1;  // looked up, unused here
};

}  // namespace oxelo
