#pragma once

#include <QObject>
#include <QVariant>
#include <functional>
#include <memory>
#include <vector>

#include "discovery/LiveScreen.h"
#include "live/LiveViewControllerCore.h"

namespace oxelo {

class GPUImageView;
class QtLiveMessages;
class QtSettingsPanel;

// The live screen in the window (LiveViewController): a thin edge between
// LiveViewControllerCore with its OXLiveView, which decide everything, and
// the QML view, which lays out, draws and forwards. Each observed value of
// the view becomes a Qt property (plain maps and lists that QML reads), and
// each press, gesture, key and tap goes back as a call. The view lays itself
// out once for the size it is created at; a later size of the window (a
// desktop window resized) is laid out again with the same rules, and the
// gestures are scaled back to the view's own coordinates. The layout stands
// the way the video does (landscape video, landscape screen): in a window of
// the other shape the QML view turns the screen by a quarter (`rotated`),
// as a phone held the other way shows it.
//
// Main queue (the GUI thread), all of it. Held by shared pointer (create());
// QML only borrows it.
class QtLiveScreen final : public QObject, public LiveViewController {
  Q_OBJECT
  Q_PROPERTY(QVariantMap layout READ layout NOTIFY layoutChanged)
  Q_PROPERTY(QVariantList buttons READ buttons NOTIFY buttonsChanged)
  Q_PROPERTY(QVariantMap lockLabel READ lockLabel NOTIFY overlaysChanged)
  Q_PROPERTY(QVariantMap bottomRow READ bottomRow NOTIFY overlaysChanged)
  Q_PROPERTY(QVariantMap battery READ battery NOTIFY overlaysChanged)
  Q_PROPERTY(QString infoText READ infoText NOTIFY overlaysChanged)
  Q_PROPERTY(bool hasInfoLabel READ hasInfoLabel CONSTANT)
  Q_PROPERTY(bool showsGrid READ showsGrid CONSTANT)
  Q_PROPERTY(QVariantMap cover READ cover NOTIFY overlaysChanged)
  Q_PROPERTY(QVariantMap focusSquare READ focusSquare NOTIFY focusSquareChanged)
  Q_PROPERTY(QVariantMap notice READ notice NOTIFY noticeChanged)
  // The camera settings panel (a QtSettingsPanel), once the settings button
  // made it; null before.
  Q_PROPERTY(QObject* settingsPanel READ settingsPanel NOTIFY settingsPanelChanged)

 public:
  struct Sources {
    LiveViewControllerCore::Services services;  // onClosed is set by create()
  };
  // viewDidLoad at `width` x `height` points; `closed` runs once the screen
  // has closed by any of its ways of ending.
  static std::shared_ptr<QtLiveScreen> create(double width, double height,
                                              std::shared_ptr<LiveScreenOwner> mainScreen,
                                              Sources sources, std::function<void()> closed);
  ~QtLiveScreen() override;

  const std::shared_ptr<LiveViewControllerCore>& core() const { return core_; }
  const std::shared_ptr<OXLiveView>& liveView() const { return core_->liveView(); }
  const std::shared_ptr<GPUImageView>& preview() const { return preview_; }

  QVariantMap layout() const { return layout_; }
  QVariantList buttons() const { return buttons_; }
  QVariantMap lockLabel() const;
  QVariantMap bottomRow() const;
  QVariantMap battery() const;
  QString infoText() const;
  bool hasInfoLabel() const { return liveView()->hasInfoLabel(); }
  bool showsGrid() const { return liveView()->showsGrid(); }
  QVariantMap cover() const;
  QVariantMap focusSquare() const;
  QVariantMap notice() const { return notice_; }
  QObject* settingsPanel() const;
  QtSettingsPanel* settingsPanelView() const { return settingsPanel_.get(); }

  // The window's size for the screen, in points.
  Q_INVOKABLE void setViewSize(double width, double height);
  // A press of a button, by its place in the rows (LiveButton).
  Q_INVOKABLE void press(int button);
  // Gestures on the video rectangle, in its coordinates; states 1 began,
  // 2 changed, 3 ended, 4 cancelled.
  Q_INVOKABLE void tap(double x, double y);
  Q_INVOKABLE void longPress(int state, double x, double y);
  Q_INVOKABLE void pinch(int state, double scale);
  // A drag on the settings panel, its translation in the panel.
  Q_INVOKABLE void swipe(int state, double dx, double dy);
  Q_INVOKABLE void coverTapped();
  Q_INVOKABLE void volumeKeyPressed();
  // A button of the alert shown in `notice`, by its place; -1 closes a toast.
  Q_INVOKABLE void noticeButton(int index);

  // The screen is shown (viewWillAppear) / dismissed.
  void screenWillAppear();
  void shutdown();

 signals:
  void layoutChanged();
  void buttonsChanged();
  void overlaysChanged();
  void focusSquareChanged();
  void noticeChanged();
  void settingsPanelChanged();

 private:
  friend class QtLiveMessages;
  explicit QtLiveScreen(double width, double height);
  void follow();
  void followFocusSquare();
  void layOut();
  void refreshButtons();
  void showNotice(QVariantMap notice, std::vector<std::function<void()>> actions);
  // The panel at the settings button's first press (makeSettingsPanel).
  std::shared_ptr<LiveSettingsPanel> makeSettingsPanel(std::shared_ptr<Haptics> haptics,
                                                       std::shared_ptr<LiveMessages> messages,
                                                       bool tablet);
  // From this window's video rectangle to the view's own.
  double scaleX() const;
  double scaleY() const;

  std::shared_ptr<GPUImageView> preview_;
  std::shared_ptr<LiveViewControllerCore> core_;
  double width_, height_;  // the window's size now
  QVariantMap layout_;
  QVariantList buttons_;
  LiveRect video_;  // the video rectangle in this window
  QVariantMap notice_;
  std::vector<std::function<void()>> noticeActions_;
  std::vector<Subscription> subscriptions_;
  Subscription focusSubscription_;
  std::unique_ptr<QtSettingsPanel> settingsPanel_;
};

}  // namespace oxelo
