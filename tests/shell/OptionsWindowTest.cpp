#include <gtest/gtest.h>

#include <QQmlApplicationEngine>
#include <sstream>

#include "media/ConfigurationFromSettings.h"
#include "media/VideoSizeCatalogue.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "shell/AppDelegate.h"
#include "shell/CameraCommands.h"
#include "shell/qt/QtMainQueue.h"
#include "shell/qt/QtOptions.h"
#include "shell/qt/QtWindow.h"
#include "shell/web/MakerAddresses.h"
#include "tests/shell/OptionsTestSupport.h"
#include "tests/shell/support/WindowTestBase.h"
#include "tests/support/TestSupport.h"
#include "transport/StreamAnnouncement.h"

namespace oxelo {
namespace {

// The pages as the main window stacks them, with a way to the help page.
constexpr char kStackWindow[] = R"(
import QtQuick
import QtQuick.Controls
ApplicationWindow {
    width: 360; height: 720; visible: true
    StackView { id: stack; objectName: "stack"; anchors.fill: parent }
    Component.onCompleted: stack.push(Qt.resolvedUrl("OptionsPage.qml"))
    function openHelp() { stack.push(Qt.resolvedUrl("HelpPage.qml")) }
}
)";

// The options pages on the offscreen platform with the virtual cameras,
// driven by taps as a user would; the settings store is the program's own.
// With OXELO_SCREENSHOT_DIR set the pages are written there as PNG files.
class OptionsWindowTest : public test::WindowTestBase {
 protected:
  void SetUp() override {
    WindowTestBase::SetUp();
    MainQueue::set(main_);
    driver_ = std::make_unique<QtMainQueue>(main_);
    catalogue_.applyStartupSizeRule();
    QtOptions::Sources sources;
    sources.defaults = defaults_;
    sources.device.hevcDecodeSupported = true;
    sources.haptics = recorder_;
    sources.opener = recorder_;
    sources.catalogue = &catalogue_;
    registerOptions(engine_, sources);
    engine_.loadData(kStackWindow, QUrl("qrc:/shell/qml/OptionsTestWindow.qml"));
    ASSERT_FALSE(engine_.rootObjects().isEmpty());
    window_ = qobject_cast<QQuickWindow*>(engine_.rootObjects().first());
    ASSERT_TRUE(test::spinUntil([&] { return item("cell_videoSize"); }));
    test::settle();  // the rows take their places as the page is drawn
  }

  void TearDown() override {
    driver_.reset();
    main_->stop();
    MainQueue::set(nullptr);
    WindowTestBase::TearDown();
  }

  QQuickItem* item(const char* name) const { return test::findItem(window_->contentItem(), name); }
  QString textOf(const char* parent, const char* child) const {
    return test::findItem(item(parent), child)->property("text").toString();
  }
  int depth() const { return item("stack")->property("depth").toInt(); }
  // No page is on its way in or out.
  bool still() const { return !item("stack")->property("busy").toBool(); }
  void choose(const char* cell, const QString& entry) {
    ASSERT_TRUE(test::chooseSheetEntry(window_, cell, entry))
        << cell << ": " << entry.toStdString();
  }
  void shoot(const char* name, int width, int height) {
    window_->resize(width, height);
    test::settle();
    test::grabShot(window_, name);
  }

  std::shared_ptr<Queue> main_ = Queue::createDriven("main");
  std::unique_ptr<QtMainQueue> driver_;
  VideoSizeCatalogue catalogue_;
  std::shared_ptr<test::RecordingOptionsView> recorder_ =
      std::make_shared<test::RecordingOptionsView>();
  QQmlApplicationEngine engine_;
  QQuickWindow* window_ = nullptr;
};

// Size, codec and grid chosen on the page are in the store at once, and the
// next session's configuration and the info packet it announces carry them.
TEST_F(OptionsWindowTest, ChangesOnThePageReachTheNextSessionsConfiguration) {
  EXPECT_EQ(textOf("cell_videoSize", "title"), "Video size");  // the key's text, not the key
  shoot("options-landscape", 720, 360);
  shoot("options-portrait", 360, 720);

  choose("cell_videoSize", "1920 × 1080");
  choose("cell_encoder", "HEVC");
  test::tap(window_, item("cell_grid"));

  EXPECT_EQ(defaults_->integerForKey(keys::videoWidth), 1920);
  EXPECT_EQ(defaults_->integerForKey(keys::videoHeight), 1080);
  EXPECT_EQ(defaults_->integerForKey(keys::videoEncoder), 1);
  EXPECT_TRUE(defaults_->boolForKey(keys::showGrid));
  EXPECT_TRUE(test::spinUntil([&] { return textOf("cell_encoder", "value") == "HEVC"; }));
  EXPECT_EQ(textOf("cell_videoSize", "value"), "1920 × 1080");

  LFLiveStreamInfo stream;
  auto configuration = configurationFromSettings(/*statusBarOrientation=*/3);
  stream.videoConfiguration = configuration.video;
  stream.audioConfiguration = configuration.audio;
  const auto announced = infoPacketFields(stream, /*hevcDecodeSupported=*/true);
  EXPECT_EQ(announced.width, 1920u);
  EXPECT_EQ(announced.height, 1080u);
  EXPECT_EQ(announced.videoEncoder, 1u);
}

// A long press on the help row (not a tap: nothing opens outside) gives the
// heavy impact and the advanced page, whose rows write the store; the help
// page shows the built-in page under its title and closes one level.
TEST_F(OptionsWindowTest, LongPressOpensAdvancedAndHelpShowsTheBuiltInPage) {
  const QPointF at = item("cell_help")->mapToScene(QPointF(20, 20));
  auto mouse = [&](QEvent::Type type, Qt::MouseButtons buttons) {
    QMouseEvent event(type, at, at, window_->mapToGlobal(at), Qt::LeftButton, buttons, {});
    QCoreApplication::sendEvent(window_, &event);
  };
  mouse(QEvent::MouseButtonPress, Qt::LeftButton);  // held until the page opens
  ASSERT_TRUE(test::spinUntil([&] { return item("advancedPage"); }));
  mouse(QEvent::MouseButtonRelease, Qt::NoButton);
  ASSERT_TRUE(test::spinUntil([&] { return depth() == 2 && still(); }));
  EXPECT_EQ(recorder_->impacts, std::vector<int>{2});
  EXPECT_TRUE(recorder_->opened.empty());

  test::tap(window_, item("advanced_showDebugInfo"));
  EXPECT_TRUE(defaults_->boolForKey(keys::showDebugInfo));
  choose("advanced_hdr", "On");
  EXPECT_EQ(defaults_->stringForKey(keys::hdr), "On");
  EXPECT_TRUE(test::spinUntil([&] {
    return test::findItem(item("advanced_showDebugInfo"), "check")->isVisible() &&
           textOf("advanced_hdr", "detail") == "On";
  }));
  shoot("advanced-landscape", 720, 360);
  shoot("advanced-portrait", 360, 720);
  test::tap(window_, item("advancedBack"));
  ASSERT_TRUE(test::spinUntil([&] { return depth() == 1; }));

  QMetaObject::invokeMethod(window_, "openHelp");
  ASSERT_TRUE(test::spinUntil([&] { return item("helpTitle") && still(); }));
  EXPECT_EQ(item("helpTitle")->property("text").toString(), "Help");
  EXPECT_TRUE(item("helpText")->property("text").toString().contains(maker::homepageUrl));
  test::tap(window_, item("helpClose"));
  EXPECT_TRUE(test::spinUntil([&] { return depth() == 1 && !item("helpPage"); }));
}

}  // namespace
}  // namespace oxelo
