#include "shell/qt/QtLiveScreen.h"

#include <algorithm>

#include "filters/GPUImageView.h"
#include "platform/dispatch/QueueCheck.h"

namespace oxelo {

std::shared_ptr<QtLiveScreen> QtLiveScreen::create(Sources sources) {
  return std::shared_ptr<QtLiveScreen>(new QtLiveScreen(std::move(sources)));
}

QtLiveScreen::QtLiveScreen(Sources sources)
    : sources_(std::move(sources)), preview_(std::make_shared<GPUImageView>()) {}

QtLiveScreen::~QtLiveScreen() = default;

void QtLiveScreen::open() {
  controller_ = LiveScreenController::create(sources_.controller, weak_from_this());
  controller_->open(owner_);
}

void QtLiveScreen::shutdown() {
  subscriptions_.clear();
  if (controller_) controller_->shutdown();
}

OXLiveSession* QtLiveScreen::session() const {
  return controller_ ? controller_->session().get() : nullptr;
}

void QtLiveScreen::liveScreenDidStart(OXLiveSession& session,
                                      const LiveSessionConfiguration& configuration) {
  auto size = configuration.video->videoSize();
  if (size.height > 0) videoAspect_ = double(size.width) / size.height;
  landscape_ = configuration.video->landscape();
  layOut();
  session.setCaptureDelegate(weak_from_this());
  session.setPreView(preview_);
  follow(session);
}

void QtLiveScreen::liveScreenWillStop(OXLiveSession&) { subscriptions_.clear(); }

void QtLiveScreen::follow(OXLiveSession& session) {
  // The observers hop to the main queue by themselves; each one reads the
  // session's value anew, so a late notification shows what holds now.
  auto refresh = [this] {
    auto* s = this->session();
    if (!s) return;
    torchLevel_ = static_cast<int>(s->torch());
    beautyOn_ = s->beautyFace();
    mirrorOn_ = s->mirror();
    recording_ = s->recording();
    lockLevel_ = static_cast<int>(s->aeafLock());
    emit changed();
  };
  subscriptions_.push_back(session.torchProperty().observe([refresh](auto&, auto&) { refresh(); }));
  subscriptions_.push_back(
      session.beautyFaceProperty().observe([refresh](auto&, auto&) { refresh(); }));
  subscriptions_.push_back(
      session.mirrorProperty().observe([refresh](auto&, auto&) { refresh(); }));
  subscriptions_.push_back(
      session.recordingProperty().observe([refresh](auto&, auto&) { refresh(); }));
  subscriptions_.push_back(
      session.aeafLockProperty().observe([refresh](auto&, auto&) { refresh(); }));
  refresh();
}

void QtLiveScreen::liveScreenDebugInfo(const LFLiveDebug& info) {
  (void)info;
  emit changed();
}

void QtLiveScreen::closePressed() {
  if (controller_) controller_->userClose();
}

void QtLiveScreen::cameraPressed() {
  if (auto* s = session()) s->setCaptureDevicePosition(0);
}

void QtLiveScreen::mirrorPressed() {
  if (auto* s = session()) s->setMirror(!s->mirror());
}

void QtLiveScreen::beautyPressed() {
  auto* s = session();
  if (!s) return;
  if (s->beautyFace() && s->beautyMethod() == 0) {
    s->setBeautyMethod(1);
    s->setBeautyFace(true);
    return;
  }
  s->setBeautyFace(!s->beautyFace());
}

void QtLiveScreen::torchPressed() {
  if (auto* s = session()) s->setTorch((s->torch() + 1) % 6);
}

void QtLiveScreen::recordPressed() {
  if (auto* s = session()) s->remoteRecord(!recording_);
}

void QtLiveScreen::snapshotPressed() {
  if (auto* s = session()) s->remoteSnapshot();
}

void QtLiveScreen::coverTapped() {
  covered_ = false;
  coverImage_ = false;
  emit changed();
}

void QtLiveScreen::setViewSize(double width, double height) {
  if (width <= 0 || height <= 0) return;
  viewWidth_ = width;
  viewHeight_ = height;
  layOut();
}

void QtLiveScreen::layOut() {
  const double longSide = std::max(viewWidth_, viewHeight_);
  const double shortSide = std::min(viewWidth_, viewHeight_);
  Layout l;
  if (landscape_) l.buttonSpace += 5;
  if (landscape_) {
    l.topMargin = 5.0;
    l.rowMargin = 10.0;
  } else if (longSide / shortSide > 1.7777777777777777) {
    l = Layout{4, 2.0, 4.0, 5.0, true};
  }
  if (shortSide <= 320.0) l = Layout{landscape_ ? 7.0 : 0.0, 5.0, 5.0, 5.0, true};
  const double w = landscape_ ? longSide : shortSide;
  const double h = landscape_ ? shortSide : longSide;
  l.wifiVisible = w > 320.0;
  layout_ = l;
  const double r = videoAspect_ > 0 ? videoAspect_ : 16.0 / 9.0;
  const double dx = std::max(0.0, (viewWidth_ - viewHeight_ * r) * 0.5);
  const double dy = std::max(0.0, (viewHeight_ - viewWidth_ / r) * 0.5);
  (void)h;
  videoRect_ = QRectF(dx, dy, viewWidth_ - 2 * dx, viewHeight_ - 2 * dy);
  emit layoutChanged();
}

void QtLiveScreen::tap(double, double) {}
void QtLiveScreen::longPress(double, double) {}
void QtLiveScreen::pinch(int, double) {}

}  // namespace oxelo
