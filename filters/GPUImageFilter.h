#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "filters/GPUImageOutput.h"

namespace oxelo {

class GLProgram;

// The default shader texts: the vertex stage passes the position through and
// hands on the texture coordinate; the fragment stage copies the texture.
extern const char* const kGPUImageVertexShaderString;
extern const char* const kGPUImagePassthroughFragmentShaderString;

// The largest size of `aspect`'s shape inside `bounds`, centred.
GPUSize aspectFitSize(GPUSize aspect, GPUSize bounds);

// A node that draws its input through one shader program into a framebuffer
// of the cache and passes that on. Created on any thread (the program is set
// up on the video processing queue, waiting for it); uniform setters may be
// called from any thread and do not wait; setBackgroundColor is a plain
// store; every other operation runs on the video processing queue.
class GPUImageFilter : public GPUImageOutput, public GPUImageInput {
 public:
  GPUImageFilter(const std::string& vertexShader, const std::string& fragmentShader);
  explicit GPUImageFilter(const std::string& fragmentShader);
  GPUImageFilter();
  ~GPUImageFilter() override;

  // The texture coordinates of a rotation mode for the vertices (-1, -1),
  // (1, -1), (-1, 1), (1, 1); any mode above 7 reads as 0.
  static const float* textureCoordinatesForRotation(uint64_t mode);
  static const float* defaultVertices();

  // GPUImageInput.
  void newFrameReadyAtTime(double time, int index) override;
  void setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer, int index) override;
  int nextAvailableTextureIndex() const override { return 0; }
  void setInputSize(GPUSize size, int index) override;
  void setInputRotation(uint64_t mode, int index) override;
  GPUSize maximumOutputSize() const override { return {}; }
  void endProcessing() override;
  bool enabled() const override { return enabled_; }
  void setCurrentlyReceivingMonochromeInput(bool value) override {
    currentlyReceivingMonochromeInput_ = value;
  }

  void forceProcessingAtSize(GPUSize size) override;
  void forceProcessingAtSizeRespectingAspectRatio(GPUSize size) override;

  void renderToTexture(const float* vertices, const float* textureCoordinates);
  void informTargetsAboutNewFrameAtTime(double time);
  GPUSize outputFrameSize() const { return inputTextureSize_; }
  GPUSize sizeOfFBO() const;
  GPUSize rotatedSize(GPUSize size, int index) const;

  void setBackgroundColor(float red, float green, float blue, float alpha);
  void setPreventRendering(bool prevent) { preventRendering_ = prevent; }

  // Uniforms. The value is set on the queue and kept: every draw of this
  // filter replays its values first, since its program may be shared with
  // other filters that set other values.
  void setFloat(float value, const std::string& uniformName);
  void setPoint(float x, float y, const std::string& uniformName);
  void setFloatVec4(std::array<float, 4> vector, int uniform);
  void setFloat(float value, int uniform, GLProgram* program);
  void setMatrix4f(std::array<float, 16> matrix, int uniform, GLProgram* program);
  void setAndExecuteUniformStateCallbackAtIndex(int uniform, GLProgram* program,
                                                std::function<void()> block);
  void setUniformsForProgramAtIndex(int programIndex);

  GLProgram* filterProgram() const { return filterProgram_.get(); }

 protected:
  // For subclasses with more inputs: the attributes beyond the first two.
  GPUImageFilter(const std::string& vertexShader, const std::string& fragmentShader,
                 std::vector<std::string> extraAttributes);
  // Around the draw: binds the further inputs' textures and coordinates;
  // unlocks them once drawn.
  virtual void bindAdditionalInputs() {}
  virtual void releaseAdditionalInputs() {}
  void unlockFirstInput();

  std::shared_ptr<GPUImageFramebuffer> firstInputFramebuffer_;
  std::shared_ptr<GLProgram> filterProgram_;
  int filterPositionAttribute_ = -1;
  int filterTextureCoordinateAttribute_ = -1;
  int filterInputTextureUniform_ = -1;
  std::array<float, 4> backgroundColor_{0, 0, 0, 0};
  bool isEndProcessing_ = false;
  uint64_t inputRotation_ = kRotationNone;
  bool currentlyReceivingMonochromeInput_ = false;
  std::map<int, std::function<void()>> uniformStateRestorationBlocks_;
  bool preventRendering_ = false;

 private:
  // Runs `task` on the queue while this filter lives.
  void runWhileAlive(std::function<void()> task);
  std::shared_ptr<int> liveness_ = std::make_shared<int>(0);
};

}  // namespace oxelo
