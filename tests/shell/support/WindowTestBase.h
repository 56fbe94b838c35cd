#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <memory>
#include <sstream>

#include "platform/audio/AudioBackend.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "shell/AppDelegate.h"
#include "shell/CameraCommands.h"
#include "shell/qt/QtMainQueue.h"
#include "shell/qt/QtWindow.h"
#include "tests/shell/support/QuickWindow.h"
#include "tests/support/TestSupport.h"

namespace oxelo::test {

// What every window test stands on: the offscreen application with the
// program's translations, a settings store of its own in a temporary folder
// (the standard one while the test runs, set up as at start-up), the virtual
// cameras with their size catalogue, and the synthetic sound.
class WindowTestBase : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ensureOffscreenApp([](QGuiApplication& app) { installTranslations(app); });
  }

  void SetUp() override {
    defaults_ = std::make_shared<UserDefaults>(dir_.path());
    UserDefaults::setStandard(defaults_);
    AppDelegate().applicationDidFinishLaunching(*defaults_);
    std::ostringstream err;
    ASSERT_EQ(startCameras("virtual", err), 0) << err.str();
    loadCatalogueAtStartup();
    std::string error;
    AudioBackend::setCurrent(AudioBackend::open("synthetic", error));
  }

  void TearDown() override { UserDefaults::setStandard(nullptr); }

  TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
};

// The program's whole window over a main queue that the test's clock drives:
// a test makes `driver_`, `shell_` and `engine_` (registering what its pages
// need), then showWindow(). TearDown closes it in the program's order: the live screen,
// what closeScreens() adds, the engine, the shell, the queue.
class ShellWindowTestBase : public WindowTestBase {
 protected:
  void SetUp() override {
    WindowTestBase::SetUp();
    MainQueue::set(main_);
  }

  void TearDown() override {
    if (shell_ && shell_->live()) shell_->live()->shutdown();
    closeScreens();
    engine_.reset();
    shell_.reset();
    driver_.reset();
    main_->stop();
    MainQueue::set(nullptr);
    WindowTestBase::TearDown();
  }
  // Between the live screen's shutdown and the engine's end.
  virtual void closeScreens() {}

  // Loads the window of `shell_` into `engine_` at `width` x `height`.
  void showWindow(int width, int height) {
    ASSERT_TRUE(loadWindow(*engine_, *shell_));
    window_ = qobject_cast<QQuickWindow*>(engine_->rootObjects().first());
    ASSERT_NE(window_, nullptr);
    window_->resize(width, height);
    QCoreApplication::processEvents();
  }
  QQuickItem* item(const char* name) const { return findItem(window_->contentItem(), name); }

  // The main queue's timers wait for this clock.
  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  std::shared_ptr<Queue> main_ = Queue::createDriven("main", clock_);
  std::unique_ptr<QtMainQueue> driver_;  // made when the test opens its window
  std::shared_ptr<QtShell> shell_;
  std::unique_ptr<QQmlApplicationEngine> engine_;
  QQuickWindow* window_ = nullptr;
};

}  // namespace oxelo::test
