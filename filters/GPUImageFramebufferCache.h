#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "filters/GPUImageTypes.h"
#include "filters/MemoryPressureWatcher.h"

namespace oxelo {

class GPUImageFramebuffer;

// The idle framebuffers of the context, a stack per key: a returned object
// goes under "<key>-<n>" with n the count of idle objects of its key, and a
// fetch takes the one of the highest slot. It never evicts by itself; a
// purge drops every idle object, and objects in use come back later at slot
// 0. Its maps are touched on the video processing queue only; the operations
// may be called from any thread.
class GPUImageFramebufferCache {
 public:
  GPUImageFramebufferCache();
  ~GPUImageFramebufferCache();
  // From now on purges on the system's low-memory signal, where there is
  // one (logged where not). The application asks for it once at start-up;
  // tests leave it off so that no purge comes between their steps. Any
  // thread; later calls do nothing.
  void purgeOnMemoryPressure();

  // "<w>x<h>-<min>:<mag>:<wrapS>:<wrapT>:<internal>:<format>:<type>" with one
  // decimal on the sizes, and "-NOFB" at the end for texture-only objects.
  static std::string hashForSize(GPUSize size, const GPUTextureOptions& options, bool onlyTexture);

  // An idle object of this key, or a new one; handed out with a count of 1.
  // Waits for the video processing queue.
  std::shared_ptr<GPUImageFramebuffer> fetchFramebufferForSize(GPUSize size,
                                                               const GPUTextureOptions& options,
                                                               bool onlyTexture);
  std::shared_ptr<GPUImageFramebuffer> fetchFramebufferForSize(GPUSize size, bool onlyTexture) {
    return fetchFramebufferForSize(size, GPUTextureOptions{}, onlyTexture);
  }
  // Clears the object's counts at once and files it on the queue (later, when
  // called from elsewhere).
  void returnFramebufferToCache(std::shared_ptr<GPUImageFramebuffer> framebuffer);
  // Drops every idle object, on the queue, without waiting. What the system's
  // low-memory signal triggers.
  void purgeAllUnassignedFramebuffers();

  // Video processing queue: the idle count of a key (also its next slot), and
  // the object filed in a slot, if any.
  int framebufferTypeCount(const std::string& key) const;
  std::shared_ptr<GPUImageFramebuffer> idleFramebuffer(const std::string& key, int slot) const;

 private:
  std::map<std::string, std::shared_ptr<GPUImageFramebuffer>> framebufferCache_;
  std::map<std::string, int> framebufferTypeCounts_;
  std::mutex observerMutex_;
  std::unique_ptr<MemoryPressureWatcher> memoryWarningObserver_;  // guarded by observerMutex_
  bool triedObserver_ = false;                                    // guarded by observerMutex_
};

}  // namespace oxelo
