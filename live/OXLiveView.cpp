#include "live/OXLiveView.h"

#include "filters/GPUImageView.h"
#include "live/LiveGestures.h"
#include "live/LiveIndicators.h"
#include "live/LiveTexts.h"
#include "platform/camera/CameraSystem.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {
constexpr uint32_t kAlertTitleColour = (44u << 16) | (167u << 8) | 234u;

bool settingOn(const char* key) {
  auto defaults = UserDefaults::standard();
  return defaults && defaults->boolForKey(key);
}

bool backCameraHasTorch() {
  auto system = CameraSystem::current();
  if (!system) return false;
  auto device = system->defaultDeviceWithDeviceType(AVCaptureDeviceTypeBuiltInWideAngleCamera,
                                                    AVMediaTypeVideo, AVCaptureDevicePositionBack);
  return device && device->hasTorch();
}

const char* stateName(LiveStreamState state) {
  switch (state) {
    case LiveStreamState::Idle:
    case LiveStreamState::Stopped:
      return "Status_DisConnected";
    case LiveStreamState::Connecting:
      return "Status_Connecting";
    case LiveStreamState::Connected:
      return "Status_Connected";
    case LiveStreamState::Failed:
      return "Status_ConnectError";
  }
  return "";
}
}  // namespace

std::shared_ptr<OXLiveView> OXLiveView::create(double width, double height, Services services) {
  auto view = std::shared_ptr<OXLiveView>(new OXLiveView(width, height, std::move(services)));
  view->build();
  return view;
}

OXLiveView::OXLiveView(double width, double height, Services services)
    : width_(width), height_(height), services_(std::move(services)) {
  if (!services_.cameraAccess)
    services_.cameraAccess = std::make_shared<LinuxMediaAccess>(CameraSystem::current());
  if (!services_.haptics) services_.haptics = std::make_shared<Haptics>();
  if (!services_.sounds) services_.sounds = std::make_shared<SystemSounds>();
  if (!services_.messages) services_.messages = std::make_shared<LiveMessages>();
  if (!services_.battery) services_.battery = BatteryMonitor::shared();
  // The screen asks for the camera itself and starts the stream when it
  // first appears.
  services_.sources.startOnOpen = false;
  services_.sources.runOnStart = false;
}

OXLiveView::~OXLiveView() = default;

std::shared_ptr<OXLiveSession> OXLiveView::session() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (auto existing = controller_->session()) return existing;
  auto session = controller_->liveSession();  // the camera state applied
  // The zoom the capture will have once the stored one is applied.
  if (auto capture = session->videoCapture()) currentZoom_ = capture->zoomScale();
  if (auto defaults = UserDefaults::standard();
      defaults && defaults->objectForKey(keys::zoomScale).is_number()) {
    const double stored = static_cast<double>(defaults->floatForKey(keys::zoomScale));
    if (stored != currentZoom_) currentZoom_ = stored;
  }
  if (services_.preview) session->setPreView(services_.preview);
  return session;
}

void OXLiveView::build() {
  OX_ASSERT_ON_MAIN_QUEUE();
  controller_ = LiveScreenController::create(services_.sources, weak_from_this());
  requestAccess(CameraAccess::Media::video);
  requestAccess(CameraAccess::Media::audio);
  videoHideTimes_ = 0;

  auto s = session();
  const auto& configuration = s->videoConfiguration();
  const VideoSize size = configuration->videoSize();
  const bool torch = services_.backCameraHasTorch.value_or(backCameraHasTorch());
  layout_ = liveLayout({.width = width_,
                        .height = height_,
                        .tablet = services_.tablet,
                        .landscape = configuration->landscape(),
                        .videoWidth = static_cast<double>(size.width),
                        .videoHeight = static_cast<double>(size.height),
                        .torchHidden = !torch});
  showGrid_ = settingOn(keys::showGrid);

  const std::pair<LiveButton, const char*> images[] = {{LiveButton::close, "close"},
                                                       {LiveButton::camera, "camera_flip"},
                                                       {LiveButton::mirror, "mirror_1"},
                                                       {LiveButton::beauty, "beauty-off"},
                                                       {LiveButton::torch, "bolt_outline"},
                                                       {LiveButton::wifi, "wifi_5"},
                                                       {LiveButton::record, "videocam_outline"},
                                                       {LiveButton::snapshot, "camera_outline"},
                                                       {LiveButton::settings, "gear_outline"}};
  for (const auto& [which, image] : images) editButton(which, [&](auto& b) { b.image = image; });
  editButton(LiveButton::wifi, [&](auto& b) {
    b.alpha = 0.8;
    b.hidden = layout_.wifiHidden;
  });
  editButton(LiveButton::torch, [&](auto& b) {
    b.hidden = !torch;
    b.enabled = !settingOn(keys::frontCam);
  });
  editButton(LiveButton::mirror, [&](auto& b) { b.selected = s->mirror(); });
  editButton(LiveButton::beauty, [&](auto& b) { b.selected = s->beautyFace(); });
  hasInfoLabel_ = settingOn(keys::showDebugInfo);

  observeSession();
  s->setCaptureDelegate(weak_from_this());
  videoDeviceDidChange();
}

void OXLiveView::editButton(LiveButton which, const std::function<void(LiveButtonState&)>& edit) {
  auto& property = buttons_[index(which)];
  LiveButtonState state = property.get();
  edit(state);
  property.set(state);
}

// ---- Permission ----

void OXLiveView::requestAccess(CameraAccess::Media media) {
  const bool video = media == CameraAccess::Media::video;
  const int status = services_.cameraAccess->authorizationStatus(media);
  switch (status) {
    case CameraAccess::notDetermined:
      services_.cameraAccess->requestAccess(media, [weak = weak_from_this(), video](bool granted) {
        if (!granted || !video) return;
        postWeak(*MainQueue::get(), weak,
                 [](OXLiveView& self) { self.session()->setRunning(true); });
      });
      return;
    case CameraAccess::restricted:
    case CameraAccess::denied:
      showPermissionAlert(media);
      return;
    case CameraAccess::authorized:
      if (video) session()->setRunning(true);
      return;
    default:
      return;
  }
}

void OXLiveView::showPermissionAlert(CameraAccess::Media media) {
  const bool video = media == CameraAccess::Media::video;
  const bool chinese = prefersChinese();
  LiveAlert alert;
  alert.titleColour = kAlertTitleColour;
  alert.transitionStyle = 3;
  alert.title = chinese ? liveText("S_PERMISSION_TITLE", true) : services_.displayName;
  alert.message = liveText(video ? "S_CAMERA_PERMISSION" : "S_MIC_PERMISSION", chinese);
  const std::string reason = services_.cameraAccess->refusalReason(media);
  if (!reason.empty()) alert.message += "\n\n" + reason;
  // Held weakly: the alert may be kept by the very service that shows it.
  alert.buttons.push_back({"A_OK", 0, [weak = std::weak_ptr<LiveMessages>(services_.messages)] {
                             if (auto messages = weak.lock()) messages->openSettings();
                           }});
  alert.buttons.push_back({"A_CANCEL", 2, {}});
  services_.messages->showAlert(alert);
}

// ---- The run ----

void OXLiveView::startLive() {
  OX_ASSERT_ON_MAIN_QUEUE();
  on_battery_level_changed();
  wifiStrength_ = 5;
  controller_->startLive();
}

void OXLiveView::shut_down() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (settingsView_) settingsView_->shutDown();
  auto s = controller_->session();
  if (!s || shutDown_) return;
  shutDown_ = true;
  s->setDelegate({});
  deviceObserver_.reset();
  sessionObservers_.clear();
  // Saves the camera state, stops the camera and the stream; already done
  // when the session ended by itself.
  if (!controller_->isClosed()) controller_->shutdown();
}

void OXLiveView::hideVideo() {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto s = controller_->session();
  if (!s || !s->preView()) return;
  if (videoHideTimes_++ >= 1) return;
  s->setPreView(nullptr);
  s->setDim(true);
  auto delegate = delegate_.lock();
  if (!delegate) return;
  delegate->showFullImage(kCoverImage, [weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self) return;
    auto s = self->controller_->session();
    if (!s) return;
    s->setPreView(self->services_.preview);
    s->setDim(false);
  });
}

void OXLiveView::on_battery_level_changed() {
  const int cls =
      batteryIconClass(services_.battery->batteryLevel(), services_.battery->batteryState());
  BatteryIconState state = batteryIcon_.get();
  if (cls >= 3) {
    state.hidden = true;
  } else {
    state.hidden = false;
    state.iconClass = cls;
  }
  batteryIcon_.set(state);
}

void OXLiveView::on_volume_button_tapped() { pressButton(LiveButton::snapshot); }

// ---- Following the session ----

void OXLiveView::observeSession() {
  auto s = session();
  auto hop = [this](auto reaction) {
    return [weak = weak_from_this(), reaction](const auto&, const auto& value) {
      postWeak(*MainQueue::get(), weak,
               [reaction, value](OXLiveView& self) { reaction(self, value); });
    };
  };
  sessionObservers_.push_back(
      s->aeafLockProperty().observe(hop([](OXLiveView& self, int64_t v) { self.onAeafLock(v); })));
  sessionObservers_.push_back(
      s->torchProperty().observe(hop([](OXLiveView& self, int64_t v) { self.onTorch(v); })));
  sessionObservers_.push_back(s->beautyFaceProperty().observe(hop([](OXLiveView& self, bool v) {
    self.editButton(LiveButton::beauty, [v](auto& b) { b.selected = v; });
  })));
  sessionObservers_.push_back(s->mirrorProperty().observe(hop([](OXLiveView& self, bool v) {
    self.editButton(LiveButton::mirror, [v](auto& b) { b.selected = v; });
  })));
  sessionObservers_.push_back(
      s->dimProperty().observe(hop([](OXLiveView& self, bool v) { self.onDim(v); })));
  sessionObservers_.push_back(
      s->recordingProperty().observe(hop([](OXLiveView& self, bool v) { self.onRecording(v); })));
}

void OXLiveView::onAeafLock(int64_t value) {
  LockLabelState state = lockLabel_.get();
  state.hidden = value == 0;
  if (value != 0) state.level = value;
  state.fadeIn = false;
  lockLabel_.set(state);
}

void OXLiveView::onTorch(int64_t value) {
  editButton(LiveButton::torch, [value](LiveButtonState& b) {
    if (b.hidden) return;
    b.selected = value >= 1;
    b.alpha = value >= 1 ? static_cast<double>(value) / 5.0 : 1.0;
  });
}

void OXLiveView::onDim(bool) {
  auto s = controller_->session();
  if (!s) return;
  if (s->dim() && s->preView()) {
    videoHideTimes_ = 0;
    hideVideo();
    return;
  }
  if (!s->dim() && !s->preView()) {
    if (auto delegate = delegate_.lock()) delegate->showFullImage({}, {});
  }
}

void OXLiveView::onRecording(bool recording) {
  editButton(LiveButton::record, [recording](auto& b) { b.selected = recording; });
  services_.sounds->play(recording ? 1117 : 1118);
}

void OXLiveView::liveScreenStateDidChange(LiveStreamState state) {
  oxlog("Live - state {}", stateName(state));
}

void OXLiveView::liveScreenDebugInfo(const LFLiveDebug& info) {
  auto s = controller_->session();
  if (!s) return;
  const uint64_t configured = s->videoConfiguration()->videoBitRate();
  if (hasInfoLabel_) infoText_.set(statisticsLine(configured, info));
  const int64_t level = signalLevel(s->videoBitrate(), configured, info.currentBandwidth);
  if (level == wifiStrength_) return;
  wifiStrength_ = level;
  editButton(LiveButton::wifi, [level](auto& b) { b.image = "wifi_" + std::to_string(level); });
}

void OXLiveView::liveScreenClientSetFocusPoint(double x, double y) {
  auto s = controller_->session();
  auto capture = s ? s->videoCapture() : nullptr;
  if (!capture) return;
  const TapAction action = tapAction({.aeafLock = s->aeafLock(),
                                      .customFocusSupported = capture->customFocusSupported(),
                                      .afLock = capture->afLock(),
                                      .customExposureSupported = capture->customExposureSupported(),
                                      .aeLock = capture->aeLock()});
  if (action == TapAction::none) return;
  setFocusPoint(x * layout_.video.width, y * layout_.video.height, action == TapAction::focus);
}

void OXLiveView::liveScreenClientSetAutoStatusForItem(int64_t item) {
  if (panelVisible()) settingsView_->autoStatusChanged(item);
}

// ---- Camera changes ----

void OXLiveView::videoDeviceWillChange() {
  if (panelVisible()) settingsView_->videoDeviceWillChange();
  if (focusSquare_) focusSquare_->hide();
  LockLabelState lock = lockLabel_.get();
  lock.hidden = true;
  lockLabel_.set(lock);
  deviceObserver_.reset();
}

void OXLiveView::videoDeviceDidChange() {
  if (panelVisible()) settingsView_->videoDeviceDidChange();
  observeDevice();
}

void OXLiveView::observeDevice() {
  auto s = controller_->session();
  auto capture = s ? s->videoCapture() : nullptr;
  auto device = capture ? capture->device() : nullptr;
  if (!device) return;
  deviceObserver_ = device->observeSubjectAreaChangeMonitoring([weak = weak_from_this()](bool on) {
    postWeak(*MainQueue::get(), weak, [on](OXLiveView& self) {
      auto square = self.focusSquare_;
      if (!on && square && !square->hidden() && square->alpha() < 1.0) square->hide();
    });
  });
}

void OXLiveView::subjectAreaDidChange() {
  if (!focusSquare_) return;
  auto s = controller_->session();
  auto capture = s ? s->videoCapture() : nullptr;
  if (!capture || !capture->customFocusSupported()) {
    focusSquare_->hide();
    return;
  }
  focusSquare_->updatePoint(width_ * 0.5, height_ * 0.5, CameraFocusSquare::kSubjectAreaWidth);
  focusSquare_->animateFocusingAction(true);
}

// ---- Gestures ----

void OXLiveView::handleTap(double x, double y) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!tapPassesPanel(panelVisible(), panelVisible() ? y - settingsView_->top() : 0, y)) return;
  liveScreenClientSetFocusPoint(x / layout_.video.width, y / layout_.video.height);
}

void OXLiveView::setFocusPoint(double x, double y, bool animated) {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto s = session();
  auto capture = s->videoCapture();
  if (!capture) return;
  const auto& configuration = s->videoConfiguration();
  const VideoSize size = configuration->videoSize();
  FocusGeometry geometry{.viewWidth = layout_.video.width,
                         .viewHeight = layout_.video.height,
                         .videoWidth = static_cast<double>(size.width),
                         .videoHeight = static_cast<double>(size.height),
                         .sessionPreset = static_cast<int64_t>(configuration->sessionPreset()),
                         .landscape = configuration->landscape(),
                         .mirror = s->mirror()};
  if (auto device = capture->device()) {
    if (auto format = device->activeFormat()) {
      geometry.formatWidth = format->width;
      geometry.formatHeight = format->height;
    }
  }
  const FocusFraction point = focusFraction(x, y, geometry);
  capture->setFocusPoint(point.u, point.v);
  LockLabelState lock = lockLabel_.get();
  lock.hidden = true;
  lockLabel_.set(lock);

  const double viewX = x + layout_.video.x, viewY = y + layout_.video.y;
  if (focusSquare_) {
    focusSquare_->updatePoint(viewX, viewY, CameraFocusSquare::kTouchWidth);
  } else {
    focusSquare_ = CameraFocusSquare::create(viewX, viewY);
    focusSquareCreated_.notify();
  }
  if (animated)
    focusSquare_->animateFocusingAction(false);
  else
    focusSquare_->showQuietly();
}

void OXLiveView::handleLongPress(int state, double x, double y) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (state != 1 || panelVisible()) return;
  services_.haptics->heavyVibrate();
  auto s = session();
  s->setAeafLock(nextAeafLock(s->aeafLock()));
  if (inUpperLeftQuarter(x, y, layout_.video.width, layout_.video.height)) videoHideTimes_ = 0;
}

void OXLiveView::handlePinch(int state, double scale) {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto s = session();
  auto capture = s->videoCapture();
  if (!capture) return;
  if (state == 1) {
    currentZoom_ = capture->zoomScale();
    oxlog("Zoom Began");
    return;
  }
  const auto zoom = pinchZoom(scale, currentZoom_, capture->maxZoomScale(), capture->zoomScale());
  if (!zoom) return;
  s->setZoomScale(*zoom);
  oxlog("Zoom {:.2f}", *zoom);
}

void OXLiveView::handleSwipe(int state, double dx, double dy) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!dragClosesPanel(state, dx, dy) || !settingsView_) return;
  settingsView_->slideDown({});
  const int64_t lock = session()->aeafLock();
  lockLabel_.set({.hidden = lock == 0, .level = lock == 1 ? 1 : 2, .fadeIn = lock != 0});
  bottomRow_.set({.hidden = false, .fadeIn = true});
}

// ---- Buttons ----

std::shared_ptr<LiveSettingsPanel> OXLiveView::settingsView() {
  if (!settingsView_ && services_.makeSettingsPanel) settingsView_ = services_.makeSettingsPanel();
  return settingsView_;
}

void OXLiveView::pressButton(LiveButton which) {
  OX_ASSERT_ON_MAIN_QUEUE();
  auto s = session();
  switch (which) {
    case LiveButton::close:
      s->stopLive();
      controller_->userClose();
      return;
    case LiveButton::camera:
      cameraPressed();
      return;
    case LiveButton::mirror:
      services_.haptics->lightVibrate();
      s->setMirror(!s->mirror());
      editButton(LiveButton::mirror, [&](auto& b) { b.selected = s->mirror(); });
      return;
    case LiveButton::beauty:
      beautyPressed();
      return;
    case LiveButton::torch:
      services_.haptics->lightVibrate();
      s->setTorch((s->torch() + 1) % 6);
      return;
    case LiveButton::wifi:
      wifiPressed();
      return;
    case LiveButton::record: {
      bool selected = false;
      editButton(LiveButton::record, [&](auto& b) { selected = b.selected = !b.selected; });
      s->remoteRecord(selected);
      services_.haptics->mediumVibrate();
      return;
    }
    case LiveButton::snapshot:
      services_.messages->pulse(static_cast<int>(LiveButton::snapshot));
      services_.sounds->play(1108);
      s->remoteSnapshot();
      services_.haptics->mediumVibrate();
      return;
    case LiveButton::settings:
      settingsPressed();
      return;
  }
}

void OXLiveView::cameraPressed() {
  services_.haptics->lightVibrate();
  auto s = session();
  const int64_t position = s->captureDevicePosition();
  const std::string type = s->captureDeviceType();
  s->setCaptureDevicePosition(0);
  const int64_t now = s->captureDevicePosition();
  if (now == position && s->captureDeviceType() == type)
    services_.messages->showToast("S_UNSUPPORTED_VIDEO_SIZE", kToastDefaultSeconds);
  if (!buttons_[index(LiveButton::torch)].get().hidden) {
    editButton(LiveButton::torch, [now](auto& b) { b.enabled = now == 1; });
    s->setTorch(0);
  }
  currentZoom_ = 1.0;
}

void OXLiveView::beautyPressed() {
  services_.haptics->lightVibrate();
  auto s = session();
  if (s->beautyFace() && s->beautyMethod() == 0) {
    s->setBeautyMethod(1);
    s->setBeautyFace(true);
    return;
  }
  s->setBeautyFace(!s->beautyFace());
}

void OXLiveView::wifiPressed() {
  LiveAlert alert;
  alert.message = wifiStrength_ == 5 ? "V_WIFI_GOOD" : "V_WIFI_BAD";
  alert.keys = true;
  alert.buttons.push_back({"A_OK", 1, {}});
  services_.messages->showAlert(alert);
}

void OXLiveView::settingsPressed() {
  bottomRow_.set({.hidden = true, .fadeIn = false});
  LockLabelState lock = lockLabel_.get();
  lock.hidden = true;
  lockLabel_.set(lock);
  postAfterWeak(*MainQueue::get(), 0.1, weak_from_this(), [](OXLiveView& self) {
    if (auto panel = self.settingsView()) panel->slideUp();
  });
}

}  // namespace oxelo
