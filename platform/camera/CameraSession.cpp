#include "platform/camera/CameraSession.h"

#include <atomic>

namespace oxelo {

class CameraSession::Relay final : public CameraFrameSink {
 public:
  explicit Relay(std::weak_ptr<CameraFrameSink> sink) : sink_(std::move(sink)) {}
  void cameraDidOutputFrame(const CameraFramePtr& frame) override {
    if (auto s = sink_.lock()) s->cameraDidOutputFrame(frame);
  }
  void cameraStreamDidEnd(const CameraError& error) override {
    ended_ = true;
    if (auto s = sink_.lock()) s->cameraStreamDidEnd(error);
  }
  std::atomic<bool> ended_{false};

 private:
  std::weak_ptr<CameraFrameSink> sink_;
};

CameraSession::CameraSession(std::weak_ptr<CameraFrameSink> sink)
    : relay_(std::make_shared<Relay>(std::move(sink))) {}

CameraSession::~CameraSession() { stopRunning(); }

std::shared_ptr<CaptureDevice> CameraSession::device() const {
  std::lock_guard lock(mutex_);
  return device_;
}

CameraError CameraSession::setDevice(std::shared_ptr<CaptureDevice> device) {
  std::lock_guard lock(mutex_);
  if (device == device_) return {};
  if (!running_) {
    device_ = std::move(device);
    return {};
  }
  auto old = device_;
  if (old) old->stopStreaming();
  relay_->ended_ = false;
  if (!device) {
    device_ = nullptr;
    running_ = false;
    return {};
  }
  if (auto error = device->startStreaming(relay_)) {
    // The failed exchange keeps the old camera.
    if (!old || old->startStreaming(relay_)) running_ = false;
    return error;
  }
  device_ = std::move(device);
  return {};
}

CameraError CameraSession::startRunning() {
  std::lock_guard lock(mutex_);
  if (running_ && !relay_->ended_) return {};
  if (!device_) return CameraError::noCamera();
  device_->stopStreaming();  // the remains of a stream that ended by itself
  relay_->ended_ = false;
  auto error = device_->startStreaming(relay_);
  running_ = !error;
  return error;
}

void CameraSession::stopRunning() {
  std::lock_guard lock(mutex_);
  if (!running_) return;
  if (device_) device_->stopStreaming();
  running_ = false;
}

bool CameraSession::isRunning() const {
  std::lock_guard lock(mutex_);
  return running_ && !relay_->ended_;
}

}  // namespace oxelo
