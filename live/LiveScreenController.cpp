#include "live/LiveScreenController.h"

#include <algorithm>

#include "channels/Carrier.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

std::shared_ptr<LiveScreenController> LiveScreenController::create(
    Sources sources, std::weak_ptr<LiveScreenView> view) {
  return std::shared_ptr<LiveScreenController>(
      new LiveScreenController(std::move(sources), std::move(view)));
}

void LiveScreenController::open(std::shared_ptr<LiveScreenOwner> owner) {
  OX_ASSERT_ON_MAIN_QUEUE();
  owner_ = owner;
  if (owner) owner->prepareLiveView(*this);
  if (!carrier_) oxlog("Live - opened with no host and no channel");
  if (!sources_.startOnOpen) return;
  postWeak(*MainQueue::get(), weak_from_this(),
           [](LiveScreenController& self) { self.startLive(); });
}

void LiveScreenController::setCarrier(std::shared_ptr<Carrier> carrier) {
  OX_ASSERT_ON_MAIN_QUEUE();
  carrier_ = std::move(carrier);
  if (!carrier_) return;
  if (carrier_->kind() == Carrier::Kind::usb) {
    oxlog("Live - USB channel taken over");
  } else {
    oxlog("Live - TCP channel to {}:{} taken over", hostIP_, hostPort_);
  }
}

std::shared_ptr<OXLiveSession> LiveScreenController::liveSession() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (session_) return session_;
  configuration_ = configurationFromSettings(sources_.orientation);
  session_ =
      OXLiveSession::create(configuration_.audio, configuration_.video,
                            static_cast<int64_t>(configuration_.captureType), sources_.environment);
  loadCameraState();
  session_->setDelegate(weak_from_this());
  session_->setShowDebugInfo(true);
  return session_;
}

void LiveScreenController::startLive() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (closed_ || started_) return;
  started_ = true;
  liveSession();
  auto info = std::make_shared<LFLiveStreamInfo>();
  if (!hostIP_.empty() && hostPort_ != 0) {
    info->host = hostIP_;
    info->port = hostPort_;
  }
  session_->initStreamInfo(info);
  if (carrier_) session_->streamSocket()->setCarrier(std::move(carrier_));
  carrier_.reset();
  if (sources_.runOnStart) session_->setRunning(true);
  session_->startLive();
  if (auto view = view_.lock()) view->liveScreenDidStart(*session_, configuration_);
}

namespace {
// The camera state the live screen keeps between sessions, as separate
// settings under the names a preset uses. The camera itself (`frontCam`,
// `deviceType`) is chosen by the capture when it starts.
constexpr const char* kCameraStateKeys[] = {
    keys::torchLevel,         keys::faceBeautify, keys::beautyMethod,
    keys::horizontalFlip,     keys::aeLock,       keys::autoExposure,
    keys::customExposure,     keys::exposure,     keys::ISO,
    keys::exposureTargetBias, keys::awbLock,      keys::autoWhiteBalance,
    keys::wbTemperature,      keys::afLock,       keys::autoFocus,
    keys::lensPosition,       keys::zoomScale};
// Values the settings keep in single precision.
constexpr const char* kFloatKeys[] = {keys::exposure, keys::ISO, keys::exposureTargetBias,
                                      keys::lensPosition, keys::zoomScale};
}  // namespace

void LiveScreenController::loadCameraState() {
  auto defaults = UserDefaults::standard();
  if (!defaults) return;
  auto state = UserDefaults::Json::object();
  for (const char* key : kCameraStateKeys) state[key] = defaults->objectForKey(key);
  session_->loadPreset(state);
}

void LiveScreenController::saveCameraState() {
  auto defaults = UserDefaults::standard();
  if (!defaults || !session_) return;
  auto state = UserDefaults::Json::object();
  session_->savePreset(state);
  defaults->removeObjectForKey(keys::deviceType);
  for (const auto& [key, value] : state.items()) {
    const bool single = std::ranges::any_of(kFloatKeys, [&](const char* k) { return key == k; });
    if (single && value.is_number())
      defaults->setFloat(key, value.get<float>());
    else
      defaults->setObject(key, value);
  }
  defaults->synchronize();
}

void LiveScreenController::stopStreaming() {
  if (!session_ || stopped_) return;
  stopped_ = true;
  if (auto view = view_.lock()) view->liveScreenWillStop(*session_);
  saveCameraState();
  session_->setRunning(false);
  session_->stopLive();
}

void LiveScreenController::shutdown() {
  OX_ASSERT_ON_MAIN_QUEUE();
  closed_ = true;
  std::shared_ptr<OXStreamSocket> socket = session_ ? session_->streamSocket() : nullptr;
  stopStreaming();
  if (socket) socket->sendQueue()->runSync([] {});
}

void LiveScreenController::userClose() {
  OX_ASSERT_ON_MAIN_QUEUE();
  close([](LiveScreenOwner& owner) { owner.liveViewUserClose(true); });
}

void LiveScreenController::close(const std::function<void(LiveScreenOwner&)>& reaction) {
  if (closed_) return;
  closed_ = true;
  auto keep = shared_from_this();  // the main screen lets go of our screen below
  stopStreaming();
  auto owner = owner_.lock();
  if (!owner) return;
  reaction(*owner);
  owner->viewWillAppear();
  owner->viewDidAppear();
}

void LiveScreenController::liveSessionLiveStateDidChange(OXLiveSession*, LiveStreamState state) {
  if (auto view = view_.lock()) view->liveScreenStateDidChange(state);
}

void LiveScreenController::liveSessionDebugInfo(OXLiveSession*, const LFLiveDebug& info) {
  if (auto view = view_.lock()) view->liveScreenDebugInfo(info);
}

void LiveScreenController::liveSessionClientSetFocusPoint(OXLiveSession*, double x, double y) {
  if (auto view = view_.lock()) view->liveScreenClientSetFocusPoint(x, y);
}

void LiveScreenController::liveSessionClientSetAutoStatusForItem(OXLiveSession*, int64_t item) {
  if (auto view = view_.lock()) view->liveScreenClientSetAutoStatusForItem(item);
}

void LiveScreenController::liveSessionErrorCode(OXLiveSession*, LiveStreamError errorCode) {
  OX_ASSERT_ON_MAIN_QUEUE();
  oxlog("Live - error {}", static_cast<int64_t>(errorCode));
  switch (errorCode) {
    case LiveStreamError::ConnectionLost:
      close([](LiveScreenOwner& owner) { owner.liveViewConnectionLost(); });
      return;
    case LiveStreamError::PeerClosed:
      close([](LiveScreenOwner& owner) { owner.liveViewUserClose(false); });
      return;
    case LiveStreamError::PeerRestart:
      if (closed_) return;
      if (session_) session_->stopLive();
      postAfterWeak(*MainQueue::get(), kRestartDelay, weak_from_this(),
                    [](LiveScreenController& self) {
                      oxlog("Live - restart asked by the host");
                      self.close([](LiveScreenOwner& owner) { owner.liveViewRestart(); });
                    });
      return;
    case LiveStreamError::ConnectFailed:
      return;
  }
}

}  // namespace oxelo
