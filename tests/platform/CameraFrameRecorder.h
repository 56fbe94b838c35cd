#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/camera/CameraFrameSink.h"

namespace oxelo::test {

// A frame sink that keeps what it gets and lets a test wait for it (on the
// delivery thread's progress, bounded in case it never comes).
class CameraFrameRecorder final : public CameraFrameSink {
 public:
  void cameraDidOutputFrame(const CameraFramePtr& frame) override {
    std::lock_guard lock(mutex_);
    frames_.push_back(frame);
    changed_.notify_all();
  }
  void cameraStreamDidEnd(const CameraError& error) override {
    std::lock_guard lock(mutex_);
    ended_.push_back(error);
    changed_.notify_all();
  }

  // The n-th frame (from 0) once it has come; none after a few seconds.
  CameraFramePtr frame(size_t n) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(5), [&] { return frames_.size() > n; });
    return frames_.size() > n ? frames_[n] : nullptr;
  }
  std::optional<CameraError> end() {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(5), [&] { return !ended_.empty(); });
    return ended_.empty() ? std::nullopt : std::optional(ended_.front());
  }
  size_t count() const {
    std::lock_guard lock(mutex_);
    return frames_.size();
  }
  size_t ends() const {
    std::lock_guard lock(mutex_);
    return ended_.size();
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<CameraFramePtr> frames_;
  std::vector<CameraError> ended_;
};

}  // namespace oxelo::test
