#include "shell/qt/QtLiveScreen.h"

#include <QPointer>
#include <algorithm>

#include "filters/GPUImageView.h"
#include "live/CapturePanelCamera.h"
#include "live/LiveLayout.h"
#include "shell/qt/QtSettingsPanel.h"

namespace oxelo {

namespace {

QVariantMap rect(const LiveRect& r) {
  return {{"x", r.x}, {"y", r.y}, {"width", r.width}, {"height", r.height}};
}

}  // namespace

// Alerts and toasts of the live view, shown by the QML view as its notice.
class QtLiveMessages final : public LiveMessages {
 public:
  QPointer<QtLiveScreen> screen;

  void showAlert(const LiveAlert& alert) override {
    if (!screen) return;
    QVariantList buttons;
    std::vector<std::function<void()>> actions;
    for (const auto& b : alert.buttons) {
      buttons.push_back(QString::fromStdString(b.key));
      actions.push_back(b.action);
    }
    auto text = [&](const std::string& s) { return QString::fromStdString(s); };
    screen->showNotice({{"title", text(alert.title)},
                        {"message", text(alert.message)},
                        {"keys", alert.keys},
                        {"buttons", buttons},
                        {"titleColour", QString::asprintf("#%06x", alert.titleColour)},
                        {"hasTitleColour", alert.titleColour != 0}},
                       std::move(actions));
  }
  void showToast(const std::string& key, double seconds) override {
    if (!screen) return;
    screen->showNotice({{"message", QString::fromStdString(key)},
                        {"keys", true},
                        {"toast", true},
                        {"milliseconds", int(seconds * 1000)}},
                       {});
  }
};

std::shared_ptr<QtLiveScreen> QtLiveScreen::create(double width, double height,
                                                   std::shared_ptr<LiveScreenOwner> mainScreen,
                                                   Sources sources, std::function<void()> closed) {
  auto screen = std::shared_ptr<QtLiveScreen>(new QtLiveScreen(width, height));
  auto messages = std::make_shared<QtLiveMessages>();
  messages->screen = screen.get();
  auto& services = sources.services;
  services.view.messages = messages;
  services.view.preview = screen->preview_;
  services.view.tablet = std::min(width, height) >= 600.0;
  services.view.makeSettingsPanel = [screen = QPointer<QtLiveScreen>(screen.get()),
                                     haptics = services.view.haptics, messages,
                                     tablet = services.view.tablet] {
    return screen ? screen->makeSettingsPanel(haptics, messages, tablet) : nullptr;
  };
  services.onClosed = std::move(closed);
  screen->core_ =
      LiveViewControllerCore::create(width, height, std::move(mainScreen), std::move(services));
  screen->follow();
  screen->layOut();
  return screen;
}

QtLiveScreen::QtLiveScreen(double width, double height)
    : preview_(std::make_shared<GPUImageView>()), width_(width), height_(height) {}

QtLiveScreen::~QtLiveScreen() = default;

QObject* QtLiveScreen::settingsPanel() const { return settingsPanel_.get(); }

std::shared_ptr<LiveSettingsPanel> QtLiveScreen::makeSettingsPanel(
    std::shared_ptr<Haptics> haptics, std::shared_ptr<LiveMessages> messages, bool tablet) {
  auto view = std::make_unique<QtSettingsPanel>(std::move(haptics), std::move(messages));
  auto panel = makeLiveSettingsPanel(*liveView(), view->services(), tablet);
  if (!panel) return nullptr;
  view->setPanel(panel);
  settingsPanel_ = std::move(view);
  emit settingsPanelChanged();
  return panel;
}

void QtLiveScreen::follow() {
  auto& view = *liveView();
  for (int i = 0; i < kLiveButtonCount; ++i)
    subscriptions_.push_back(view.button(static_cast<LiveButton>(i)).observe([this](auto&, auto&) {
      refreshButtons();
    }));
  auto overlays = [this](auto&, auto&) { emit overlaysChanged(); };
  subscriptions_.push_back(view.lockLabel().observe(overlays));
  subscriptions_.push_back(view.bottomRow().observe(overlays));
  subscriptions_.push_back(view.batteryIcon().observe(overlays));
  subscriptions_.push_back(view.infoText().observe(overlays));
  subscriptions_.push_back(core_->cover().observe(overlays));
  subscriptions_.push_back(view.onFocusSquareCreated([this] { followFocusSquare(); }));
  followFocusSquare();
  refreshButtons();
}

void QtLiveScreen::followFocusSquare() {
  if (auto square = liveView()->focusSquare()) {
    focusSubscription_ =
        square->stateProperty().observe([this](auto&, auto&) { emit focusSquareChanged(); });
  }
  emit focusSquareChanged();
}

void QtLiveScreen::refreshButtons() {
  QVariantList list;
  for (int i = 0; i < kLiveButtonCount; ++i) {
    const auto b = liveView()->button(static_cast<LiveButton>(i)).get();
    list.push_back(QVariantMap{{"hidden", b.hidden},
                               {"enabled", b.enabled},
                               {"selected", b.selected},
                               {"alpha", b.alpha},
                               {"image", QString::fromStdString(b.image)}});
  }
  buttons_ = list;
  emit buttonsChanged();
}

void QtLiveScreen::setViewSize(double width, double height) {
  if (width <= 0 || height <= 0 || (width == width_ && height == height_)) return;
  width_ = width;
  height_ = height;
  layOut();
}

void QtLiveScreen::layOut() {
  // The same rules as the view's own layout, for the window's size now.
  const auto& created = liveView()->layout();
  LiveLayoutInput input;
  input.width = width_;
  input.height = height_;
  input.tablet = std::min(width_, height_) >= 600.0;
  input.landscape = created.video.width >= created.video.height;
  input.videoWidth = created.video.width;
  input.videoHeight = created.video.height;
  input.torchHidden = liveView()->button(LiveButton::torch).get().hidden;
  const LiveLayout l = liveLayout(input);
  video_ = l.video;
  // The screen stands the way its video does, as a phone's screen turns to
  // the live screen's one orientation: a window of the other shape shows it
  // turned by a quarter.
  const bool rotated = input.landscape != (width_ > height_) && width_ != height_;
  QVariantList buttons, grid;
  for (const auto& b : l.buttons) buttons.push_back(rect(b));
  for (const auto& g : l.grid) grid.push_back(rect(g));
  layout_ = {{"rotated", rotated},
             {"video", rect(l.video)},
             {"buttons", buttons},
             {"grid", grid},
             {"bottomView", rect(l.bottomView)},
             {"batteryIcon", rect(l.batteryIcon)},
             {"infoLabel", rect(l.infoLabel)},
             {"infoFontSize", l.infoFontSize},
             {"lockCenterX", l.lockCenterX},
             {"lockCenterY", l.lockCenterY},
             {"lockFontSize", LiveLayout::kLockFontSize},
             {"lockPaddingWidth", LiveLayout::kLockPaddingWidth},
             {"lockPaddingHeight", LiveLayout::kLockPaddingHeight},
             {"wifiHidden", l.wifiHidden}};
  emit layoutChanged();
}

double QtLiveScreen::scaleX() const {
  const double created = liveView()->layout().video.width;
  return video_.width > 0 ? created / video_.width : 1.0;
}

double QtLiveScreen::scaleY() const {
  const double created = liveView()->layout().video.height;
  return video_.height > 0 ? created / video_.height : 1.0;
}

QVariantMap QtLiveScreen::lockLabel() const {
  const auto s = liveView()->lockLabel().get();
  return {{"hidden", s.hidden}, {"level", qint64(s.level)}, {"fadeIn", s.fadeIn}};
}

QVariantMap QtLiveScreen::bottomRow() const {
  const auto s = liveView()->bottomRow().get();
  return {{"hidden", s.hidden}, {"fadeIn", s.fadeIn}};
}

QVariantMap QtLiveScreen::battery() const {
  const auto s = liveView()->batteryIcon().get();
  return {{"hidden", s.hidden}, {"iconClass", s.iconClass}};
}

QString QtLiveScreen::infoText() const {
  return QString::fromStdString(liveView()->infoText().get());
}

QVariantMap QtLiveScreen::cover() const {
  const auto s = core_->cover().get();
  return {{"shown", s.shown}, {"image", QString::fromStdString(s.image)}};
}

QVariantMap QtLiveScreen::focusSquare() const {
  auto square = liveView()->focusSquare();
  if (!square) return {{"phase", 0}};
  const auto& s = square->state();
  // From the view's coordinates to this window's, through the video
  // rectangle of each.
  const auto& created = liveView()->layout().video;
  const double x = video_.x + (s.centerX - created.x) / scaleX();
  const double y = video_.y + (s.centerY - created.y) / scaleY();
  return {{"phase", static_cast<int>(s.phase)},
          {"centerX", x},
          {"centerY", y},
          {"width", s.width},
          {"alpha", s.alpha},
          {"scale", s.scale},
          {"blinkRepeats", s.blinkRepeats},
          {"shrinkDuration", CameraFocusSquare::kShrinkDuration},
          {"blinkDuration", CameraFocusSquare::kBlinkDuration},
          {"fadeDuration", CameraFocusSquare::kFadeDuration}};
}

void QtLiveScreen::press(int button) {
  if (button < 0 || button >= kLiveButtonCount) return;
  liveView()->pressButton(static_cast<LiveButton>(button));
}

void QtLiveScreen::tap(double x, double y) { liveView()->handleTap(x * scaleX(), y * scaleY()); }

void QtLiveScreen::longPress(int state, double x, double y) {
  liveView()->handleLongPress(state, x * scaleX(), y * scaleY());
}

void QtLiveScreen::pinch(int state, double scale) { liveView()->handlePinch(state, scale); }

void QtLiveScreen::swipe(int state, double dx, double dy) {
  liveView()->handleSwipe(state, dx, dy);
}

void QtLiveScreen::coverTapped() { core_->coverTapped(); }

void QtLiveScreen::volumeKeyPressed() { core_->volumeKeyPressed(); }

void QtLiveScreen::showNotice(QVariantMap notice, std::vector<std::function<void()>> actions) {
  notice_ = std::move(notice);
  noticeActions_ = std::move(actions);
  emit noticeChanged();
}

void QtLiveScreen::noticeButton(int index) {
  auto actions = std::move(noticeActions_);
  notice_.clear();
  noticeActions_.clear();
  emit noticeChanged();
  if (index >= 0 && index < static_cast<int>(actions.size()) && actions[size_t(index)])
    actions[size_t(index)]();
}

void QtLiveScreen::screenWillAppear() { core_->screenWillAppear(); }

void QtLiveScreen::shutdown() {
  subscriptions_.clear();
  focusSubscription_.reset();
  core_->screenWillDisappear();
}

}  // namespace oxelo
