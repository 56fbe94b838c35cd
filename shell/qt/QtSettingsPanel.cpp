#include "shell/qt/QtSettingsPanel.h"

#include <QColor>
#include <QFile>
#include <QTimer>
#include <algorithm>
#include <cmath>

namespace oxelo {

namespace {

QColor colour(const PanelColour& c) { return QColor(c.r, c.g, c.b, qRound(c.a * 255.0)); }

QVariantMap rect(const LiveRect& r) {
  return {{"x", r.x}, {"y", r.y}, {"width", r.width}, {"height", r.height}};
}

// One tick of selection feedback: the lightest impact, as the feedback
// service has no event of its own for a picked value.
class HapticSelectionFeedback final : public SelectionFeedback {
 public:
  explicit HapticSelectionFeedback(std::shared_ptr<Haptics> haptics)
      : haptics_(std::move(haptics)) {}
  void selectionChanged() override { OXHelper::lightVibrate(haptics_.get()); }

 private:
  std::shared_ptr<Haptics> haptics_;
};

}  // namespace

// The panel's slides as the view's animations: the completion waits for
// the view's end of the slide. A new slide ends the one before unfinished.
class QtPanelAnimator final : public Animator {
 public:
  explicit QtPanelAnimator(QtSettingsPanel* view) : view_(view) {}
  void detach() { view_ = nullptr; }

  void animate(const SpringAnimation&, std::function<void(bool)> completion) override {
    auto before = std::move(pending_);
    pending_ = std::move(completion);
    if (before) before(false);
    if (!view_) return finish(true);
    view_->scheduleRefresh();
    emit view_->slide();
  }
  void finish(bool finished) {
    auto completion = std::move(pending_);
    pending_ = nullptr;
    if (completion) completion(finished);
    if (view_) view_->scheduleRefresh();
  }

 private:
  QtSettingsPanel* view_;
  std::function<void(bool)> pending_;
};

QtSettingsPanel::QtSettingsPanel(std::shared_ptr<Haptics> haptics,
                                 std::shared_ptr<LiveMessages> messages)
    : haptics_(std::move(haptics)),
      messages_(std::move(messages)),
      animator_(std::make_shared<QtPanelAnimator>(this)) {}

QtSettingsPanel::~QtSettingsPanel() {
  animator_->detach();
  if (panel_) panel_->ruler().setScroller({});
}

OXLiveSettings::Services QtSettingsPanel::services() const {
  OXLiveSettings::Services s;
  s.haptics = haptics_;
  s.messages = messages_;
  s.animator = animator_;
  s.makeFeedback = [haptics = haptics_]() -> std::unique_ptr<SelectionFeedback> {
    return std::make_unique<HapticSelectionFeedback>(haptics);
  };
  return s;
}

void QtSettingsPanel::setPanel(std::shared_ptr<OXLiveSettings> panel) {
  panel_ = std::move(panel);
  if (!panel_) return;
  panel_->ruler().setScroller([this](double offset, bool animated) {
    scrollAnimated_ = (scrollPending_ ? scrollAnimated_ : true) && animated;
    scrollPending_ = true;
    scrollOffset_ = offset;
    scheduleRefresh();
  });
  cellReloads_ = panel_->onCellReload([this](int64_t) { scheduleRefresh(); });
  scrollPending_ = true;
  scrollAnimated_ = false;
  scrollOffset_ = panel_->ruler().contentOffset();
  scheduleRefresh();
}

void QtSettingsPanel::scheduleRefresh() {
  if (refreshPending_) return;
  refreshPending_ = true;
  QTimer::singleShot(0, this, [this] { refresh(); });
}

void QtSettingsPanel::refresh() {
  refreshPending_ = false;
  firstTick_ = lastTick_ = -1;  // the marks may read differently now
  updateTicks();
  emit changed();
  if (!scrollPending_) return;
  scrollPending_ = false;
  emit scrollTo(scrollOffset_, scrollAnimated_);
}

double QtSettingsPanel::panelWidth() const { return panel_ ? panel_->layout().items.width : 0.0; }

QVariantMap QtSettingsPanel::layout() const {
  if (!panel_) return {};
  const auto l = panel_->layout();
  return {{"autoButton", rect(l.autoButton)},
          {"ruler", rect(l.ruler)},
          {"items", rect(l.items)},
          {"itemWidth", l.itemWidth},
          {"itemHeight", l.itemHeight}};
}

QVariantList QtSettingsPanel::items() const {
  QVariantList list;
  if (!panel_) return list;
  for (int64_t i = 0; i < panel_->itemCount(); ++i) {
    const PanelItem item = panel_->item(i);
    // The alpha of an item that cannot be chosen dims the icon and its
    // title alike; the colours themselves are opaque.
    PanelColour icon = item.colour, title = item.titleColour;
    icon.a = title.a = 1.0;
    list.push_back(QVariantMap{{"title", QString::fromStdString(item.title)},
                               {"icon", iconSource(item.icon, icon)},
                               {"titleColour", colour(title)},
                               {"opacity", item.colour.a},
                               {"selectable", item.selectable}});
  }
  return list;
}

QVariantMap QtSettingsPanel::autoButton() const {
  if (!panel_) return {{"hidden", true}};
  const int64_t status = panel_->autoButtonStatus();
  const auto icon = OXLiveSettings::autoButtonIcon(status);
  const PanelColour tint = icon.orange ? PanelColour{255, 149, 0} : PanelColour{218, 224, 237};
  return {{"hidden", panel_->autoButtonHidden()},
          {"status", qint64(status)},
          {"icon", iconSource(icon.name, tint)},
          {"iconSize", icon.size}};
}

QVariantMap QtSettingsPanel::ruler() const {
  if (!panel_) return {};
  auto& ruler = panel_->ruler();
  const RulerConfig& c = ruler.rulerConfig();
  const RulerLayout& l = ruler.rulerLayout();
  const auto point = ruler.indicator();
  return {{"horizontal", c.horizontal()},
          {"contentLength", l.contentLength()},
          {"inset", ruler.contentInset()},
          {"cellWidth", l.itemWidth},
          {"cellHeight", l.itemHeight},
          {"enabled", panel_->rulerEnabled()},
          {"alpha", panel_->rulerAlpha()},
          {"scaleColour", colour(c.scaleColor)},
          {"numberColour", colour(c.numberColor)},
          {"numberFontSize", c.numberFontSize},
          {"indicator", rect({point.x, point.y, point.width, point.height})},
          {"pointColour", colour(c.pointColor)}};
}

int QtSettingsPanel::tickSlots() const {
  if (!panel_) return 0;
  auto& ruler = panel_->ruler();
  const double pitch = ruler.rulerLayout().pitch();
  if (pitch <= 0.0) return 0;
  return static_cast<int>(std::ceil(2.0 * ruler.contentInset() / pitch)) + 2;
}

void QtSettingsPanel::updateTicks() {
  if (!panel_) return;
  auto& ruler = panel_->ruler();
  const auto& l = ruler.rulerLayout();
  const double offset = ruler.contentOffset();
  const auto cells = l.cellsIn(offset, offset + 2.0 * ruler.contentInset());
  const int64_t first = cells ? cells->first : 0, last = cells ? cells->second : -1;
  if (first == firstTick_ && last == lastTick_) return;
  firstTick_ = first;
  lastTick_ = last;
  ticks_.clear();
  for (const RulerTick& t : ruler.visibleTicks(offset)) {
    const double along = l.cellStart(t.index);
    ticks_.push_back(QVariantMap{{"cellX", l.horizontal ? along : 0.0},
                                 {"cellY", l.horizontal ? 0.0 : along},
                                 {"x", t.x},
                                 {"y", t.y},
                                 {"width", t.width},
                                 {"height", t.height},
                                 {"text", t.text ? QString::fromStdString(*t.text) : QString()}});
  }
  emit ticksChanged();
}

void QtSettingsPanel::selectItem(int index) {
  if (!panel_ || !panel_->shouldSelectItem(index)) return;
  panel_->didSelectItem(index);
  scheduleRefresh();
}

void QtSettingsPanel::tapAutoButton() {
  if (!panel_) return;
  panel_->onAutoButtonTapped();
  scheduleRefresh();
}

void QtSettingsPanel::rulerDragStarted() {
  if (panel_) panel_->ruler().scrollViewWillBeginDragging();
  // The finger holds the scale now: a move asked before is void.
  scrollPending_ = false;
}

void QtSettingsPanel::rulerScrolled(double offset) {
  if (!panel_) return;
  if (offset != lastOffset_) direction_ = offset > lastOffset_ ? 1.0 : -1.0;
  lastOffset_ = offset;
  panel_->ruler().scrollViewDidScroll(offset);
  updateTicks();
}

void QtSettingsPanel::rulerDragEnded() {
  if (panel_) panel_->ruler().scrollViewDidEndDragging(/*willDecelerate=*/true);
}

void QtSettingsPanel::rulerMovementEnded() {
  if (!panel_) return;
  auto& ruler = panel_->ruler();
  if (ruler.isTracking()) ruler.scrollViewDidEndDragging(/*willDecelerate=*/true);
  ruler.scrollViewDidEndDecelerating();
}

QVariantMap QtSettingsPanel::rulerFling(double speed, double deceleration) const {
  if (!panel_) return {{"to", 0.0}, {"duration", 0}};
  auto& ruler = panel_->ruler();
  const double from = ruler.contentOffset();
  speed = std::abs(speed);
  // A constant deceleration: the rest lies v^2 / 2a ahead, within the scale.
  double proposed = from;
  if (deceleration > 0.0) proposed += direction_ * speed * speed / (2.0 * deceleration);
  const double inset = ruler.contentInset();
  proposed = std::clamp(proposed, -inset, ruler.rulerLayout().contentLength() - inset);
  const double to = ruler.targetContentOffset(proposed);
  // The same slowing down over the distance to the tick: 2d / v.
  const double duration = speed > 0.0 ? 2.0 * std::abs(to - from) / speed : 0.0;
  return {{"to", to}, {"duration", qRound(std::min(duration, 3.0) * 1000.0)}};
}

QPointF QtSettingsPanel::numberPosition(double width, double height) const {
  if (!panel_) return {};
  const auto [x, y] = panel_->ruler().numberPosition(width, height);
  return {x, y};
}

void QtSettingsPanel::slideFinished() { animator_->finish(true); }

QString QtSettingsPanel::iconSource(const std::string& name, const PanelColour& c) {
  if (name.empty()) return {};
  QFile file(QStringLiteral(":/live/qml/icons/%1.svg").arg(QString::fromStdString(name)));
  if (!file.open(QIODevice::ReadOnly)) return {};
  // The icons are drawn in white; the white becomes the colour asked.
  QByteArray svg = file.readAll();
  svg.replace("#ffffff", QColor(c.r, c.g, c.b).name().toLatin1());
  return QStringLiteral("data:image/svg+xml;base64,") + QString::fromLatin1(svg.toBase64());
}

}  // namespace oxelo
