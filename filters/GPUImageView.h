#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <vector>

#include "filters/GPUImageOutput.h"
#include "media/PixelBuffer.h"

namespace oxelo {

class GLProgram;

// The preview node: draws each frame it receives into an offscreen surface
// of the view's pixel size and reads it back as the image the screen shows.
// While the surface has no size (headless, or before layout) it keeps no
// display framebuffer and a frame costs only the unlock of its input.
// setSizeInPixels(), setFillMode() and presentedImage() may be called from
// any thread; the GPUImageInput operations run on the video processing queue.
class GPUImageView : public GPUImageInput {
 public:
  enum FillMode : uint64_t {
    kStretch = 0,
    kPreserveAspectRatio = 1,
    kPreserveAspectRatioAndFill = 2
  };

  GPUImageView();
  ~GPUImageView() override;

  // The surface's new size (the layout of the screen item). A change makes a
  // new display framebuffer; waits for the queue.
  void setSizeInPixels(GPUSize size);
  GPUSize sizeInPixels() const;
  void setFillMode(uint64_t mode);
  void setBackgroundColor(float red, float green, float blue, float alpha);
  // The last presented picture, top row first; null before the first one.
  std::shared_ptr<PixelBuffer> presentedImage() const;
  // Video processing queue: the quad, (-w, -h), (w, -h), (-w, h), (w, h).
  std::array<float, 8> imageVertices() const { return imageVertices_; }

  // The view's own coordinates: for mode 0 the picture's first row stands at
  // the top of the view. Any mode above 7 reads as 0.
  static const float* textureCoordinatesForRotation(uint64_t mode);

  // GPUImageInput.
  void newFrameReadyAtTime(double time, int index) override;
  void setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer, int index) override;
  int nextAvailableTextureIndex() const override { return 0; }
  void setInputSize(GPUSize size, int index) override;
  void setInputRotation(uint64_t mode, int) override { inputRotation_ = mode; }
  GPUSize maximumOutputSize() const override;
  void endProcessing() override {}
  bool enabled() const override { return true; }

 private:
  void createDisplayFramebuffer();
  void destroyDisplayFramebuffer();
  bool setDisplayFramebuffer();
  void presentFramebuffer();
  void recalculateViewGeometry();

  std::shared_ptr<GLProgram> displayProgram_;
  int displayPositionAttribute_ = -1;
  int displayTextureCoordinateAttribute_ = -1;
  int displayInputTextureUniform_ = -1;
  uint64_t inputRotation_ = 0;
  std::shared_ptr<GPUImageFramebuffer> inputFramebufferForDisplay_;
  uint32_t displayRenderbuffer_ = 0;
  uint32_t displayFramebuffer_ = 0;
  GPUSize inputImageSize_;
  std::array<float, 8> imageVertices_{-1, -1, 1, -1, -1, 1, 1, 1};
  std::array<float, 4> backgroundColor_{0, 0, 0, 1};
  uint64_t fillMode_ = kPreserveAspectRatio;
  GPUSize boundsSizeAtFrameBufferEpoch_;
  GPUSize framebufferSize_;  // of the display framebuffer; zero without one

  mutable std::mutex mutex_;
  GPUSize sizeInPixels_;                    // guarded by mutex_
  std::shared_ptr<PixelBuffer> presented_;  // guarded by mutex_
  std::shared_ptr<PixelBufferPool> pool_;   // queue only
  std::vector<std::shared_ptr<PixelBuffer>> ring_;
  std::vector<uint8_t> scratch_;
};

}  // namespace oxelo
