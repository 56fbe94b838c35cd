#pragma once

#include <QObject>
#include <memory>

#include "discovery/LiveScreen.h"
#include "shell/qt/QtLiveScreen.h"
#include "shell/qt/QtMainScreen.h"

class QQmlApplicationEngine;
class QGuiApplication;

namespace oxelo {

class IdleTimer;

// What the QML window sees as `app`: the main page's screen and the live
// screen while one is open. It presents the live screen
// (LiveScreenPresenter) and lets it go once it has closed. Main queue.
class QtShell final : public QObject, public LiveScreenPresenter {
  Q_OBJECT
  Q_PROPERTY(QObject* mainScreen READ mainScreen CONSTANT)
  Q_PROPERTY(QObject* liveScreen READ liveScreen NOTIFY liveScreenChanged)
 public:
  QtShell(std::shared_ptr<QtMainScreen> screen, QtLiveScreen::Sources sources);
  // The window's content size in points, for the next live screen.
  Q_INVOKABLE void setViewSize(double width, double height);
  ~QtShell() override;

  QObject* mainScreen() const { return screen_.get(); }
  QObject* liveScreen() const { return live_.get(); }
  const std::shared_ptr<QtLiveScreen>& live() const { return live_; }

  // The live screen at the window's size; it appears once the window has
  // built its view, from a task of its own.
  std::shared_ptr<LiveViewController> presentLiveScreen(
      std::shared_ptr<LiveScreenOwner> owner) override;

 signals:
  void liveScreenChanged();

 private:
  std::shared_ptr<QtMainScreen> screen_;
  QtLiveScreen::Sources sources_;
  // The live screen has closed: the main page shows again.
  void liveScreenClosed();

  std::shared_ptr<QtLiveScreen> live_;
  double width_ = 360, height_ = 720;
};

// Feeds the idle timer from the window's input: a press or a touch that
// begins counts as a touch, any other input event as an event.
class IdleInputFilter final : public QObject {
 public:
  explicit IdleInputFilter(std::shared_ptr<IdleTimer> timer) : timer_(std::move(timer)) {}
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  std::shared_ptr<IdleTimer> timer_;
};

// Installs the English texts of the screen keys, and over them the texts of
// the system's language where there are some.
void installTranslations(QGuiApplication& app);
// Loads the window (QML) with `shell` as `app`; false when it fails to load.
bool loadWindow(QQmlApplicationEngine& engine, QtShell& shell);

}  // namespace oxelo
