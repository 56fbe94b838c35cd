#pragma once

#include <QObject>
#include <QPointF>
#include <QVariant>
#include <functional>
#include <memory>
#include <vector>

#include "live/OXLiveSettings.h"

namespace oxelo {

class QtPanelAnimator;

// The camera settings panel in the window: the edge between OXLiveSettings
// with its RulerView, which decide everything, and SettingsPanel.qml, which
// lays out, draws and forwards. The panel's state becomes plain maps and
// lists that QML reads; the item row's taps, the auto button and the ruler's
// scroll reports come back as calls.
//
// The ruler is a Flickable whose content position is the ruler's content
// offset (its margins are the ruler's insets). The view reports every
// position and the phases of a drag; where the ruler moves the scale itself
// (a value set from outside, the pin after a fling), the view is told with
// scrollTo(). Changes of the panel reach QML once per turn of the event loop
// (changed()), so that a step of several changes is drawn as its end state.
//
// The slides of the panel are the view's animations: the panel sets its end
// values, the view animates towards them on slide() and reports the end
// with slideFinished().
//
// Made on the main queue (the GUI thread) before the panel, which takes
// services() at its creation; all of it runs there. Owned by the live
// screen; QML only borrows it.
class QtSettingsPanel final : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool open READ open NOTIFY changed)
  Q_PROPERTY(double alpha READ alpha NOTIFY changed)
  Q_PROPERTY(double bottomBelowVideo READ bottomBelowVideo NOTIFY changed)
  Q_PROPERTY(double panelWidth READ panelWidth NOTIFY changed)
  Q_PROPERTY(double panelHeight READ panelHeight CONSTANT)
  Q_PROPERTY(QVariantMap layout READ layout NOTIFY changed)
  Q_PROPERTY(QVariantList items READ items NOTIFY changed)
  Q_PROPERTY(int activeIndex READ activeIndex NOTIFY changed)
  Q_PROPERTY(QVariantMap autoButton READ autoButton NOTIFY changed)
  Q_PROPERTY(QVariantMap ruler READ ruler NOTIFY changed)
  Q_PROPERTY(QVariantList ticks READ ticks NOTIFY ticksChanged)
  Q_PROPERTY(int tickSlots READ tickSlots NOTIFY changed)

 public:
  // `haptics` gives the auto button's impact and the ruler's selection
  // feedback; `messages` the lock toasts. Either may be null.
  QtSettingsPanel(std::shared_ptr<Haptics> haptics, std::shared_ptr<LiveMessages> messages);
  ~QtSettingsPanel() override;

  // What the panel is made with: this view's animator, feedback and toasts.
  OXLiveSettings::Services services() const;
  // The panel made with services(); the view follows it from now on.
  void setPanel(std::shared_ptr<OXLiveSettings> panel);
  const std::shared_ptr<OXLiveSettings>& panel() const { return panel_; }

  bool open() const { return panel_ && panel_->visible(); }
  double alpha() const { return panel_ ? panel_->alpha() : 0.0; }
  double bottomBelowVideo() const { return panel_ ? panel_->bottomBelowVideo() : 0.0; }
  double panelWidth() const;
  double panelHeight() const { return OXLiveSettings::kHeight; }
  QVariantMap layout() const;
  QVariantList items() const;
  int activeIndex() const { return panel_ ? static_cast<int>(panel_->activeIndex()) : 0; }
  QVariantMap autoButton() const;
  QVariantMap ruler() const;
  QVariantList ticks() const { return ticks_; }
  // How many tick cells can be in view at once: the view's pool of cells.
  int tickSlots() const;

  // The item row and the auto button.
  Q_INVOKABLE void selectItem(int index);
  Q_INVOKABLE void tapAutoButton();
  // The ruler's Flickable: a drag begins and ends, the content moved, the
  // movement (drag, fling or snap) is over.
  Q_INVOKABLE void rulerDragStarted();
  Q_INVOKABLE void rulerScrolled(double offset);
  Q_INVOKABLE void rulerDragEnded();
  Q_INVOKABLE void rulerMovementEnded();
  // Where a fling that leaves the finger at `speed` points per second, and
  // slows down by `deceleration` points per second per second as the
  // platform's flicks do, comes to rest: {to, duration (ms)}, the rest
  // moved onto the nearest tick. The direction is the drag's last.
  Q_INVOKABLE QVariantMap rulerFling(double speed, double deceleration) const;
  // Where a mark of text size (width, height) stands in its tick's cell.
  Q_INVOKABLE QPointF numberPosition(double width, double height) const;
  // The view's slide animation has ended.
  Q_INVOKABLE void slideFinished();

  // A qrc icon of live/qml/icons in one colour, as an address an Image
  // loads (an SVG data address); empty for a name without an icon.
  static QString iconSource(const std::string& name, const PanelColour& colour);

 signals:
  void changed();
  void ticksChanged();
  // Move the ruler's content to `offset`, animated or at once.
  void scrollTo(double offset, bool animated);
  // Animate the panel from what is drawn to its values now.
  void slide();

 private:
  friend class QtPanelAnimator;
  void scheduleRefresh();
  void refresh();
  void updateTicks();

  std::shared_ptr<Haptics> haptics_;
  std::shared_ptr<LiveMessages> messages_;
  std::shared_ptr<QtPanelAnimator> animator_;
  std::shared_ptr<OXLiveSettings> panel_;
  Subscription cellReloads_;
  bool refreshPending_ = false;
  // The ruler's moves since the last refresh: where to, and whether all of
  // them asked for an animation.
  bool scrollPending_ = false;
  double scrollOffset_ = 0.0;
  bool scrollAnimated_ = true;
  double lastOffset_ = 0.0, direction_ = 0.0;  // of the view's reports
  QVariantList ticks_;
  int64_t firstTick_ = -1, lastTick_ = -1;
};

}  // namespace oxelo
