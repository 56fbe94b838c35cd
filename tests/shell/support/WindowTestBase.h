#pragma once

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <memory>
#include <sstream>

#include "platform/audio/AudioBackend.h"
#include "platform/defaults/UserDefaults.h"
#include "shell/AppDelegate.h"
#include "shell/CameraCommands.h"
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

}  // namespace oxelo::test
