#pragma once

#include "filters/GPUImageFilter.h"

namespace oxelo {

// A filter of two inputs: the second texture on unit 3 as
// "inputImageTexture2" with the coordinates "inputTextureCoordinate2". It
// draws once both inputs have delivered (or the other input's check is
// disabled, or the other input is a still picture), and then waits for both
// again. Video processing queue, as GPUImageFilter.
class GPUImageTwoInputFilter : public GPUImageFilter {
 public:
  explicit GPUImageTwoInputFilter(const std::string& fragmentShader);
  GPUImageTwoInputFilter(const std::string& vertexShader, const std::string& fragmentShader);

  // The vertex text that hands on both coordinates.
  static const char* const kVertexShaderString;

  void disableFirstFrameCheck() { firstFrameCheckDisabled_ = true; }
  void disableSecondFrameCheck() { secondFrameCheckDisabled_ = true; }

  void newFrameReadyAtTime(double time, int index) override;
  void setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer, int index) override;
  int nextAvailableTextureIndex() const override { return hasSetFirstTexture_ ? 1 : 0; }
  void setInputSize(GPUSize size, int index) override;
  void setInputRotation(uint64_t mode, int index) override;
  GPUSize rotatedSize(GPUSize size, int index) const;

 protected:
  GPUImageTwoInputFilter(const std::string& vertexShader, const std::string& fragmentShader,
                         std::vector<std::string> extraAttributes);
  void bindAdditionalInputs() override;
  void releaseAdditionalInputs() override;

  std::shared_ptr<GPUImageFramebuffer> secondInputFramebuffer_;
  int filterSecondTextureCoordinateAttribute_ = -1;
  int filterInputTextureUniform2_ = -1;
  uint64_t inputRotation2_ = kRotationNone;
  double firstFrameTime_ = 0;
  double secondFrameTime_ = 0;
  bool hasSetFirstTexture_ = false;
  bool hasReceivedFirstFrame_ = false;
  bool hasReceivedSecondFrame_ = false;
  bool firstFrameCheckDisabled_ = false;
  bool secondFrameCheckDisabled_ = false;
};

// A filter of three inputs: the third on unit 4 as "inputImageTexture3" with
// "inputTextureCoordinate3". It draws once all three have delivered and
// tells its targets the time of the arrival that completed the set. Input
// numbers are handed out 0, 1, 2.
class GPUImageThreeInputFilter : public GPUImageTwoInputFilter {
 public:
  explicit GPUImageThreeInputFilter(const std::string& fragmentShader);

  static const char* const kVertexShaderString;

  void disableThirdFrameCheck() { thirdFrameCheckDisabled_ = true; }

  void newFrameReadyAtTime(double time, int index) override;
  void setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer, int index) override;
  int nextAvailableTextureIndex() const override;
  void setInputSize(GPUSize size, int index) override;
  void setInputRotation(uint64_t mode, int index) override;

 protected:
  void bindAdditionalInputs() override;
  void releaseAdditionalInputs() override;

  std::shared_ptr<GPUImageFramebuffer> thirdInputFramebuffer_;
  int filterThirdTextureCoordinateAttribute_ = -1;
  int filterInputTextureUniform3_ = -1;
  uint64_t inputRotation3_ = kRotationNone;
  double thirdFrameTime_ = 0;
  bool hasSetSecondTexture_ = false;
  bool hasReceivedThirdFrame_ = false;
  bool thirdFrameCheckDisabled_ = false;
};

}  // namespace oxelo
