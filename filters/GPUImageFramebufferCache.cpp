#include "filters/GPUImageFramebufferCache.h"

#include <fmt/format.h>

#include "filters/GPUImageContext.h"
#include "filters/GPUImageFramebuffer.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

std::string slotKey(const std::string& key, int slot) { return fmt::format("{}-{}", key, slot); }

}  // namespace

GPUImageFramebufferCache::GPUImageFramebufferCache() = default;

void GPUImageFramebufferCache::purgeOnMemoryPressure() {
  std::lock_guard lock(observerMutex_);
  if (memoryWarningObserver_ || triedObserver_) return;
  triedObserver_ = true;
  std::string whyNot;
  memoryWarningObserver_ =
      MemoryPressureWatcher::start([this] { purgeAllUnassignedFramebuffers(); }, &whyNot);
  if (!memoryWarningObserver_) logLine(whyNot);
}

GPUImageFramebufferCache::~GPUImageFramebufferCache() = default;

std::string GPUImageFramebufferCache::hashForSize(GPUSize size, const GPUTextureOptions& options,
                                                  bool onlyTexture) {
  return fmt::format("{:.1f}x{:.1f}-{}:{}:{}:{}:{}:{}:{}{}", size.width, size.height,
                     options.minFilter, options.magFilter, options.wrapS, options.wrapT,
                     options.internalFormat, options.format, options.type,
                     onlyTexture ? "-NOFB" : "");
}

std::shared_ptr<GPUImageFramebuffer> GPUImageFramebufferCache::fetchFramebufferForSize(
    GPUSize size, const GPUTextureOptions& options, bool onlyTexture) {
  std::shared_ptr<GPUImageFramebuffer> framebuffer;
  runSynchronouslyOnVideoProcessingQueue([&] {
    const std::string key = hashForSize(size, options, onlyTexture);
    const int count = framebufferTypeCount(key);
    int slot = 0;
    for (int candidate = count - 1; candidate >= 0; --candidate) {
      auto found = framebufferCache_.find(slotKey(key, candidate));
      if (found == framebufferCache_.end()) continue;
      framebuffer = std::move(found->second);
      framebufferCache_.erase(found);
      slot = candidate;
      break;
    }
    if (count > 0) framebufferTypeCounts_[key] = slot;
    if (!framebuffer)
      framebuffer = std::make_shared<GPUImageFramebuffer>(size, options, onlyTexture);
  });
  framebuffer->lock();
  return framebuffer;
}

void GPUImageFramebufferCache::returnFramebufferToCache(
    std::shared_ptr<GPUImageFramebuffer> framebuffer) {
  framebuffer->clearAllLocks();
  runAsynchronouslyOnVideoProcessingQueue([this, framebuffer = std::move(framebuffer)] {
    const std::string key = hashForSize(framebuffer->size(), framebuffer->textureOptions(),
                                        framebuffer->missingFramebuffer());
    const int count = framebufferTypeCount(key);
    framebufferCache_[slotKey(key, count)] = framebuffer;
    framebufferTypeCounts_[key] = count + 1;
  });
}

void GPUImageFramebufferCache::purgeAllUnassignedFramebuffers() {
  runAsynchronouslyOnVideoProcessingQueue([this] {
    framebufferCache_.clear();
    framebufferTypeCounts_.clear();
  });
}

int GPUImageFramebufferCache::framebufferTypeCount(const std::string& key) const {
  auto found = framebufferTypeCounts_.find(key);
  return found == framebufferTypeCounts_.end() ? 0 : found->second;
}

std::shared_ptr<GPUImageFramebuffer> GPUImageFramebufferCache::idleFramebuffer(
    const std::string& key, int slot) const {
  auto found = framebufferCache_.find(slotKey(key, slot));
  return found == framebufferCache_.end() ? nullptr : found->second;
}

}  // namespace oxelo
