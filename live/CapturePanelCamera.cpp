#include "live/CapturePanelCamera.h"

#include <algorithm>

#include "platform/dispatch/MainQueue.h"

namespace oxelo {

std::shared_ptr<CapturePanelCamera> CapturePanelCamera::create(
    std::shared_ptr<LFVideoCapture> capture, double interval) {
  return std::shared_ptr<CapturePanelCamera>(new CapturePanelCamera(std::move(capture), interval));
}

CapturePanelCamera::~CapturePanelCamera() {
  if (timer_) timer_->invalidate();
}

bool CapturePanelCamera::isExposureModeSupported(int64_t mode) const {
  auto device = capture_->device();
  return device && device->isExposureModeSupported(mode);
}

int64_t CapturePanelCamera::exposureMode() const {
  auto device = capture_->device();
  return device ? device->exposureMode() : AVCaptureExposureModeLocked;
}

bool CapturePanelCamera::isWhiteBalanceModeSupported(int64_t mode) const {
  auto device = capture_->device();
  return device && device->isWhiteBalanceModeSupported(mode);
}

bool CapturePanelCamera::isFocusModeSupported(int64_t mode) const {
  auto device = capture_->device();
  return device && device->isFocusModeSupported(mode);
}

bool CapturePanelCamera::isLockingWhiteBalanceWithCustomDeviceGainsSupported() const {
  auto device = capture_->device();
  return device && device->isLockingWhiteBalanceWithCustomDeviceGainsSupported();
}

bool CapturePanelCamera::isLockingFocusWithCustomLensPositionSupported() const {
  auto device = capture_->device();
  return device && device->isLockingFocusWithCustomLensPositionSupported();
}

std::string CapturePanelCamera::deviceType() const {
  auto device = capture_->device();
  return device ? device->deviceType() : std::string();
}

Subscription CapturePanelCamera::observe(PanelDeviceKey key, std::function<void()> changed) {
  auto device = capture_->device();
  if (!device) return {};
  // Changes count from now on.
  if (polled_.lock() != device) {
    polled_ = device;
    last_ = device->state();
  }
  const int id = nextId_++;
  watches_.push_back(
      {id, key, device, std::make_shared<std::function<void()>>(std::move(changed))});
  if (!timer_) {
    std::weak_ptr<CapturePanelCamera> weak = weak_from_this();
    timer_ = std::make_unique<RepeatingTimer>(MainQueue::get(), interval_, [weak] {
      if (auto self = weak.lock()) self->poll();
    });
  }
  std::weak_ptr<CapturePanelCamera> weak = weak_from_this();
  return Subscription([weak, id] {
    auto self = weak.lock();
    if (!self) return;
    std::erase_if(self->watches_, [id](const Watch& w) { return w.id == id; });
    if (self->watches_.empty() && self->timer_) {
      self->timer_->invalidate();
      self->timer_.reset();
    }
  });
}

void CapturePanelCamera::poll() {
  auto device = capture_->device();
  if (!device) return;
  CaptureDeviceState now = device->state();
  if (polled_.lock() != device || !last_) {
    polled_ = device;
    last_ = std::move(now);
    return;
  }
  const CaptureDeviceState before = *std::exchange(last_, now);
  // Copies: an observer may end observations, its own included.
  std::vector<Watch> watches = watches_;
  for (const auto& watch : watches) {
    if (watch.device.lock() != device || !differs(watch.key, before, now)) continue;
    const bool live = std::any_of(watches_.begin(), watches_.end(),
                                  [&](const Watch& w) { return w.id == watch.id; });
    if (live) (*watch.changed)();
  }
}

bool CapturePanelCamera::differs(PanelDeviceKey key, const CaptureDeviceState& a,
                                 const CaptureDeviceState& b) {
  switch (key) {
    case PanelDeviceKey::exposureMode:
      return a.exposureMode != b.exposureMode;
    case PanelDeviceKey::exposureDuration:
      return !(a.exposureDuration == b.exposureDuration);
    case PanelDeviceKey::ISO:
      return a.ISO != b.ISO;
    case PanelDeviceKey::exposureTargetBias:
      return a.exposureTargetBias != b.exposureTargetBias;
    case PanelDeviceKey::whiteBalanceMode:
      return a.whiteBalanceMode != b.whiteBalanceMode;
    case PanelDeviceKey::deviceWhiteBalanceGains:
      return !(a.whiteBalanceGains == b.whiteBalanceGains);
    case PanelDeviceKey::focusMode:
      return a.focusMode != b.focusMode;
    case PanelDeviceKey::lensPosition:
      return a.lensPosition != b.lensPosition;
    case PanelDeviceKey::videoZoomFactor:
      return a.videoZoomFactor != b.videoZoomFactor;
    case PanelDeviceKey::activePrimaryConstituentDevice:
      return false;  // this camera model has no constituent switching
  }
  return false;
}

std::shared_ptr<OXLiveSettings> makeLiveSettingsPanel(OXLiveView& view,
                                                      OXLiveSettings::Services services,
                                                      bool tablet) {
  auto session = view.session();
  auto capture = session ? session->videoCapture() : nullptr;
  if (!capture) return nullptr;
  const LiveRect& video = view.layout().video;
  const auto& configuration = capture->configuration();
  const VideoSize size = configuration->videoSize();
  const double shorter = std::min(size.width, size.height),
               longer = std::max(size.width, size.height);
  services.camera = CapturePanelCamera::create(capture);
  return OXLiveSettings::create({.videoWidth = video.width,
                                 .videoBottom = video.bottom(),
                                 .inset = static_cast<double>(view.layout().buttonSpace),
                                 .screenWidth = video.width,
                                 .landscape = configuration->landscape(),
                                 .aspect = longer > 0 ? shorter / longer : 0.0,
                                 .tablet = tablet},
                                std::move(services));
}

}  // namespace oxelo
