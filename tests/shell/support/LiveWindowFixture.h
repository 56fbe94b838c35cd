#pragma once

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <sstream>

#include "live/IdleTimer.h"
#include "platform/audio/AudioBackend.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "shell/AppDelegate.h"
#include "shell/CameraCommands.h"
#include "shell/qt/PreviewItem.h"
#include "shell/qt/QtMainQueue.h"
#include "shell/qt/QtWindow.h"
#include "tests/shell/support/QuickWindow.h"
#include "tests/shell/support/WindowTestBase.h"
#include "tests/support/FakeBatteryMonitor.h"
#include "tests/support/TestSupport.h"

namespace oxelo::test {

// The main screen's side of the hand-over, with no host: the live screen
// runs the camera and the preview without a stream.
struct NoHostOwner final : LiveScreenOwner {
  void prepareLiveView(LiveViewChannelTarget&) override {}
  void liveViewRestart() override {}
  void liveViewConnectionLost() override {}
  void liveViewUserClose(bool byUser) override { closedByUser = byUser; }
  void viewWillAppear() override { ++appeared; }
  void viewDidAppear() override {}
  std::optional<bool> closedByUser;
  int appeared = 0;
};

// The window on the offscreen platform, drawn by the software renderer,
// with the virtual camera: what a user would see, grabbed as an image. With
// OXELO_SCREENSHOT_DIR set, the grabs are also written there as PNG files
// (scripts/screenshots).
class LiveWindowFixture : public ShellWindowTestBase {
 protected:
  // Opens the window at `width` x `height` and the live screen in it.
  void open(int width, int height) {
    driver_ = std::make_unique<QtMainQueue>(main_);
    QtLiveScreen::Sources sources;
    sources.services.view.backCameraHasTorch = true;
    // A full battery, watched as the main screen would: no battery icon,
    // whatever this machine has.
    auto battery = std::make_shared<FakeBatteryMonitor>(BatteryState::unplugged, 1.0f);
    battery->setBatteryMonitoringEnabled(true);
    sources.services.view.battery = battery;
    idleTimer_ = IdleTimer::create();  // the driver puts this thread on the main queue
    sources.services.idleTimer = idleTimer_;
    shell_ = std::make_shared<QtShell>(std::make_shared<QtMainScreen>(), sources);
    engine_ = std::make_unique<QQmlApplicationEngine>();
    showWindow(width, height);
    if (HasFatalFailure()) return;
    main_->post([this] { shell_->presentLiveScreen(owner_); });
    ASSERT_TRUE(test::spinUntil([&] { return preview() && preview()->shownImage(); }))
        << "no camera picture reached the screen";
  }

  PreviewItem* preview() const { return window_ ? window_->findChild<PreviewItem*>() : nullptr; }
  QImage grab(const char* shotName) const { return test::grabShot(window_, shotName); }
  bool dimmed() { return shell_->live()->liveView()->session()->dim(); }
  static bool selected(QQuickItem* button) {
    return button->property("look").toMap().value("selected").toBool();
  }
  void click(QQuickItem* target) { test::tap(window_, target); }
  void hostCommand(uint32_t command, int32_t p1) {
    main_->post([this, command, p1] {
      shell_->live()->liveView()->session()->socketClientCommand(nullptr, {command, p1, 0});
    });
  }

  // The main queue's timers (the idle time-out, the cover's image) wait for
  // clock_; the camera runs on its own.
  std::shared_ptr<IdleTimer> idleTimer_;
  std::shared_ptr<NoHostOwner> owner_ = std::make_shared<NoHostOwner>();
};

}  // namespace oxelo::test
