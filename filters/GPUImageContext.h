#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "filters/GPUImageTypes.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

class GLProgram;
class GPUImageFramebufferCache;

// Runs `task` on the video processing queue and waits for it. Runs it at once
// on the caller's thread when the caller is already on that queue, so a wait
// from the queue to itself cannot happen. Any thread.
void runSynchronouslyOnVideoProcessingQueue(const Task& task);
// Runs `task` on the video processing queue without waiting; at once when
// the caller is already on it. Any thread.
void runAsynchronouslyOnVideoProcessingQueue(Task task);

// The one GL context of the process and the serial queue that owns it (the
// video processing queue). The context is an EGL context with OpenGL ES 2:
// on Mesa's surfaceless platform where the display offers it, else on the
// default display with a 1 x 1 pbuffer; created on first use, on the queue,
// and current on the queue's thread only. Lives as long as the process.
class GPUImageContext {
 public:
  static GPUImageContext& sharedImageProcessingContext();
  static std::shared_ptr<Queue> sharedContextQueue();
  static GPUImageFramebufferCache& sharedFramebufferCache();

  // Video processing queue. Makes the context current, creating it on first
  // use. False, with failureReason() set and logged once, when no context can
  // be made on this machine; GL work must then be skipped.
  static bool useImageProcessingContext();
  // Any thread: empty while a context exists or none was tried.
  std::string failureReason() const;
  // Video processing queue: "llvmpipe (...)" and so on; empty without a context.
  std::string rendererName();

  // Video processing queue. Makes `program` the active one unless it is already.
  static void setActiveShaderProgram(GLProgram* program);
  // Video processing queue. The program of these two texts, made on first
  // request under the key "V: <vertex> - F: <fragment>"; shared by every
  // filter that asks with the same texts.
  std::shared_ptr<GLProgram> programForVertexShaderString(const std::string& vertexShader,
                                                          const std::string& fragmentShader);
  // Video processing queue: the largest size of this shape that a texture can hold.
  static GPUSize sizeThatFitsWithinATextureForSize(GPUSize size);
  // Video processing queue: finishes the GL work queued so far.
  static void finish();

  struct Egl;  // internal

 private:
  GPUImageContext();
  bool makeCurrent();

  std::shared_ptr<Queue> contextQueue_;
  mutable std::mutex failureMutex_;
  std::string failureReason_;  // guarded by failureMutex_
  bool tried_ = false;         // video processing queue only
  std::unique_ptr<Egl> egl_;   // video processing queue only
  std::map<std::string, std::shared_ptr<GLProgram>> shaderProgramCache_;
  GLProgram* currentShaderProgram_ = nullptr;
  std::unique_ptr<GPUImageFramebufferCache> framebufferCache_;
  int maxTextureSize_ = 0;
};

}  // namespace oxelo
