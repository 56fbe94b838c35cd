#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "filters/GPUImageTypes.h"

namespace oxelo {

class GPUImageFramebuffer;
class GPUImageOutput;

// What a node that takes frames offers to its sources. Every operation runs
// on the video processing queue.
class GPUImageInput {
 public:
  virtual ~GPUImageInput() = default;
  // A frame is ready at input `index`: draw now, or wait for the other inputs.
  virtual void newFrameReadyAtTime(double time, int index) = 0;
  // Here is the frame of input `index`; the receiver takes a lock on it.
  virtual void setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> framebuffer, int index) = 0;
  // The input number for a new connection.
  virtual int nextAvailableTextureIndex() const = 0;
  virtual void setInputSize(GPUSize size, int index) = 0;
  virtual void setInputRotation(uint64_t mode, int index) = 0;
  // What the consumer needs at most; zero means no limit.
  virtual GPUSize maximumOutputSize() const = 0;
  virtual void endProcessing() = 0;
  virtual bool shouldIgnoreUpdatesToThisTarget() const { return false; }
  virtual bool enabled() const { return true; }
  virtual bool wantsMonochromeInput() const { return false; }
  virtual void setCurrentlyReceivingMonochromeInput(bool) {}
};

// Runs after each draw of a node, before its targets are told, with the node
// and the frame time; the node's output framebuffer is still set.
using FrameProcessingCompletionBlock = std::function<void(GPUImageOutput*, double)>;

// A node that produces frames: a source or a filter. Targets are held
// strongly, in the order they were added, each with its input number.
// addTarget() and the removals may be called from any thread and wait for the
// video processing queue; everything else runs on that queue.
class GPUImageOutput {
 public:
  GPUImageOutput();
  virtual ~GPUImageOutput();
  GPUImageOutput(const GPUImageOutput&) = delete;
  GPUImageOutput& operator=(const GPUImageOutput&) = delete;

  // A target added twice stays one target.
  virtual void addTarget(std::shared_ptr<GPUImageInput> target);
  virtual void addTarget(std::shared_ptr<GPUImageInput> target, int textureLocation);
  virtual void removeTarget(const std::shared_ptr<GPUImageInput>& target);
  virtual void removeAllTargets();
  virtual std::vector<std::shared_ptr<GPUImageInput>> targets() const;

  void setInputFramebufferForTarget(GPUImageInput& target, int index);
  std::shared_ptr<GPUImageFramebuffer> framebufferForOutput() const { return outputFramebuffer_; }
  void removeOutputFramebuffer() { outputFramebuffer_.reset(); }

  // Fixes the size this node draws at; zero gives it back its own size.
  virtual void forceProcessingAtSize(GPUSize size);
  virtual void forceProcessingAtSizeRespectingAspectRatio(GPUSize size);
  virtual void setFrameProcessingCompletionBlock(FrameProcessingCompletionBlock block);
  // The target that gets no frames from this node (it still gets sizes).
  virtual void setTargetToIgnoreForUpdates(GPUImageInput* target) {
    targetToIgnoreForUpdates_ = target;
  }

  bool isEnabled() const { return enabled_; }
  void setEnabled(bool enabled) { enabled_ = enabled; }
  GPUTextureOptions outputTextureOptions;

 protected:
  std::shared_ptr<GPUImageFramebuffer> outputFramebuffer_;
  std::vector<std::shared_ptr<GPUImageInput>> targets_;
  std::vector<int> targetTextureIndices_;
  GPUSize inputTextureSize_;
  GPUSize cachedMaximumOutputSize_;
  GPUSize forcedMaximumSize_;
  bool overrideInputSize_ = false;
  bool allTargetsWantMonochromeData_ = true;
  bool enabled_ = true;
  GPUImageInput* targetToIgnoreForUpdates_ = nullptr;  // one of targets_, not owned
  FrameProcessingCompletionBlock frameProcessingCompletionBlock_;
};

}  // namespace oxelo
