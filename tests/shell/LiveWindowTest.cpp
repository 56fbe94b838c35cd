#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <array>
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
#include "tests/support/FakeBatteryMonitor.h"
#include "tests/support/TestSupport.h"
#include "wire/CommandPackets.h"

namespace oxelo {
namespace {

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
class LiveWindowTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    test::ensureOffscreenApp([](QGuiApplication& app) { installTranslations(app); });
  }

  void SetUp() override {
    defaults_ = std::make_shared<UserDefaults>(dir_.path());
    UserDefaults::setStandard(defaults_);
    AppDelegate().applicationDidFinishLaunching(*defaults_);
    std::ostringstream err;
    ASSERT_EQ(startCameras("virtual", err), 0) << err.str();
    std::string error;
    AudioBackend::setCurrent(AudioBackend::open("synthetic", error));
    MainQueue::set(main_);
  }

  void TearDown() override {
    if (shell_ && shell_->live()) shell_->live()->shutdown();
    engine_.reset();
    shell_.reset();
    driver_.reset();
    main_->stop();
    MainQueue::set(nullptr);
  }

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
    ASSERT_TRUE(loadWindow(*engine_, *shell_));
    window_ = qobject_cast<QQuickWindow*>(engine_->rootObjects().first());
    ASSERT_NE(window_, nullptr);
    window_->resize(width, height);
    QCoreApplication::processEvents();
    main_->post([this] { shell_->presentLiveScreen(owner_); });
    ASSERT_TRUE(test::spinUntil([&] { return preview() && preview()->shownImage(); }))
        << "no camera picture reached the screen";
  }

  QQuickItem* item(const char* name) const { return test::findItem(window_->contentItem(), name); }
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

  test::TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  // The main queue's timers (the idle time-out, the cover's image) wait for
  // this clock; the camera runs on its own.
  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  std::shared_ptr<Queue> main_ = Queue::createDriven("main", clock_);
  std::shared_ptr<IdleTimer> idleTimer_;
  std::unique_ptr<QtMainQueue> driver_;
  std::shared_ptr<NoHostOwner> owner_ = std::make_shared<NoHostOwner>();
  std::shared_ptr<QtShell> shell_;
  std::unique_ptr<QQmlApplicationEngine> engine_;
  QQuickWindow* window_ = nullptr;
};

enum class Colour { red, green, blue, white, black };

bool looksLike(QRgb pixel, Colour colour) {
  const int r = qRed(pixel), g = qGreen(pixel), b = qBlue(pixel);
  auto high = [](int v) { return v > 190; };
  auto low = [](int v) { return v < 70; };
  switch (colour) {
    case Colour::red:
      return high(r) && low(g) && low(b);
    case Colour::green:
      return low(r) && high(g) && low(b);
    case Colour::blue:
      return low(r) && low(g) && high(b);
    case Colour::white:
      return high(r) && high(g) && high(b);
    case Colour::black:
      return r < 20 && g < 20 && b < 20;
  }
  return false;
}

struct WindowCase {
  const char* name;
  int width, height;
  bool portraitVideo;  // the setting videoPortrait
  QRectF videoRect;    // in the screen's own orientation, worked out by hand
  bool rotated;        // the screen turned a quarter clockwise in the window
  // The patch colours at the video rectangle's top left, top right, bottom
  // left and bottom right.
  std::array<Colour, 4> corners;
};

void PrintTo(const WindowCase& c, std::ostream* os) { *os << c.name; }

constexpr std::array<Colour, 4> kUpright{Colour::red, Colour::green, Colour::blue, Colour::white};
// The back camera's landscape picture in a portrait stream: its left column
// becomes the top row.
constexpr std::array<Colour, 4> kTurnedClockwise{Colour::blue, Colour::red, Colour::white,
                                                 Colour::green};

class LiveWindowLayoutTest : public LiveWindowTest,
                             public ::testing::WithParamInterface<WindowCase> {};

// The camera's corner patches (an eighth of the picture each way) show at
// the corners of the video rectangle, whatever the window's shape: the
// picture fills the rectangle, and the rectangle is where the layout puts it.
TEST_P(LiveWindowLayoutTest, CornerPatchesFillTheVideoRectangle) {
  const auto& c = GetParam();
  defaults_->setBool("videoPortrait", c.portraitVideo);
  open(c.width, c.height);
  auto* video = item("videoRect");
  ASSERT_NE(video, nullptr);
  EXPECT_EQ(QRectF(video->x(), video->y(), video->width(), video->height()), c.videoRect);
  const QImage shot = grab(c.name);
  const QRectF r = c.videoRect;
  const int in = 5;  // inside the patch, clear of the buttons' rows
  struct Probe {
    double x, y;
    Colour colour;
  };
  const Probe probes[] = {
      {r.left() + in, r.top() + in, c.corners[0]},
      {r.right() - in, r.top() + in, c.corners[1]},
      {r.left() + in, r.bottom() - in, c.corners[2]},
      {r.right() - in, r.bottom() - in, c.corners[3]},
      // Just past the first patch, towards the middle: the picture, not a patch.
      {r.left() + r.width() / 8 + in, r.top() + r.height() / 8 + in, c.corners[0]},
  };
  // From the screen's orientation to the window's.
  auto inWindow = [&](double x, double y) {
    return c.rotated ? QPoint(int(c.width - y), int(x)) : QPoint(int(x), int(y));
  };
  for (size_t i = 0; i < std::size(probes); ++i) {
    const QRgb pixel = shot.pixel(inWindow(probes[i].x, probes[i].y));
    const bool expected = i < 4;
    EXPECT_EQ(looksLike(pixel, probes[i].colour), expected)
        << "probe " << i << " at " << probes[i].x << "," << probes[i].y << ": " << qRed(pixel)
        << " " << qGreen(pixel) << " " << qBlue(pixel);
  }
  // Outside the rectangle: black.
  if (r.top() > 0) {
    EXPECT_TRUE(looksLike(shot.pixel(inWindow(r.center().x(), r.top() - 3)), Colour::black));
    EXPECT_TRUE(looksLike(shot.pixel(inWindow(r.center().x(), r.bottom() + 3)), Colour::black));
  }
  if (r.left() > 0) {
    EXPECT_TRUE(looksLike(shot.pixel(inWindow(r.left() - 3, r.center().y())), Colour::black));
    EXPECT_TRUE(looksLike(shot.pixel(inWindow(r.right() + 3, r.center().y())), Colour::black));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Windows, LiveWindowLayoutTest,
    ::testing::Values(
        WindowCase{"landscape", 1280, 720, false, QRectF(0, 0, 1280, 720), false, kUpright},
        // A landscape stream in a portrait window: the screen turned, 640 x 360
        // in the middle of 720 x 360.
        WindowCase{"turned", 360, 720, false, QRectF(40, 0, 640, 360), true, kUpright},
        // A portrait stream: 9:16 in 360 x 720.
        WindowCase{"portrait", 360, 720, true, QRectF(0, 40, 360, 640), false, kTurnedClockwise},
        WindowCase{"desktop", 1000, 700, false, QRectF(0, 68.75, 1000, 562.5), false, kUpright}),
    [](const auto& info) { return std::string(info.param.name); });

// The host's commands change the session; the buttons and the lock label
// follow it on screen, with the lock label's text looked up by its key.
TEST_F(LiveWindowTest, ButtonsFollowTheHostsCommands) {
  open(1280, 720);
  auto* mirror = item("mirrorButton");
  auto* beauty = item("beautyButton");
  auto* torch = item("torchButton");
  auto* record = item("recordButton");
  auto* lock = item("lockLabel");
  ASSERT_TRUE(mirror && beauty && torch && record && lock);
  EXPECT_FALSE(selected(mirror));
  EXPECT_FALSE(lock->isVisible());
  EXPECT_TRUE(item("liveScreen")->hasActiveFocus());  // the volume keys reach it

  hostCommand(wire::kHostMirror, 1);
  hostCommand(wire::kHostBeauty, 1);
  hostCommand(wire::kHostRecording, 1);
  hostCommand(wire::kHostTorch, 0);  // one step up: level 1
  hostCommand(wire::kHostAeafLock, 1);
  ASSERT_TRUE(test::spinUntil([&] { return lock->isVisible(); }));
  EXPECT_TRUE(selected(mirror));
  EXPECT_TRUE(selected(beauty));
  EXPECT_TRUE(selected(record));
  EXPECT_TRUE(selected(torch));
  EXPECT_DOUBLE_EQ(torch->opacity(), 0.2);
  EXPECT_EQ(lock->property("color").value<QColor>(), QColor("yellow"));
  auto* lockText = lock->childItems().value(0);
  ASSERT_NE(lockText, nullptr);
  EXPECT_EQ(lockText->property("text").toString(), "AE/AF LOCK");
  test::settle();
  const QPointF edge = lock->mapToScene(QPointF(2, lock->height() / 2));
  EXPECT_EQ(QColor(grab("lock").pixel(edge.toPoint())), QColor("yellow"));

  hostCommand(wire::kHostAeafLock, 2);
  hostCommand(wire::kHostMirror, 0);
  ASSERT_TRUE(test::spinUntil([&] { return !selected(mirror); }));
  EXPECT_EQ(lock->property("color").value<QColor>(), QColor("orange"));
  hostCommand(wire::kHostAeafLock, 0);
  EXPECT_TRUE(test::spinUntil([&] { return !lock->isVisible(); }));
}

// With the setting on, the statistics line shows each window's numbers.
TEST_F(LiveWindowTest, TheStatisticsLineShowsWithItsSetting) {
  defaults_->setBool("showDebugInfo", true);
  open(1280, 720);
  auto* info = item("infoLabel");
  ASSERT_NE(info, nullptr);
  EXPECT_TRUE(info->isVisible());
  LFLiveDebug window;
  window.currentBandwidth = 65536;  // bytes: 0.50 megabits of 2^20 bits
  window.currentCapturedVideoCount = 30;
  main_->post([this, window] { shell_->live()->liveView()->liveScreenDebugInfo(window); });
  ASSERT_TRUE(test::spinUntil([&] { return !info->property("text").toString().isEmpty(); }));
  EXPECT_TRUE(info->property("text").toString().endsWith(QString::fromUtf8("→ 0.50 Mbps, 30 fps")))
      << info->property("text").toString().toStdString();
}

// The host's dim covers the preview with the watermark; a tap on the cover
// takes it away and the picture comes back.
TEST_F(LiveWindowTest, TheCoverComesOnTheHostsDimAndGoesOnATap) {
  open(360, 720);
  auto* cover = item("cover");
  ASSERT_NE(cover, nullptr);
  EXPECT_FALSE(cover->isVisible());
  hostCommand(wire::kHostDim, 1);
  ASSERT_TRUE(test::spinUntil([&] { return cover->isVisible() && cover->opacity() == 1.0; }));
  EXPECT_TRUE(item("watermark")->isVisible());
  const QImage shot = grab("cover");
  EXPECT_TRUE(looksLike(shot.pixel(5, 300), Colour::black));  // the red patch is covered
  EXPECT_TRUE(dimmed());

  click(cover);
  EXPECT_TRUE(test::spinUntil([&] { return !cover->isVisible(); }));
  EXPECT_TRUE(test::spinUntil([&] { return !dimmed(); }));
}

// Fifteen seconds without a touch cover the preview with the watermark; it
// goes after fifteen seconds more, the black cover stays, and a tap takes it
// away.
TEST_F(LiveWindowTest, TheIdleTimeOutCoversThePreview) {
  open(1280, 720);
  IdleInputFilter input(idleTimer_);
  qApp->installEventFilter(&input);
  auto* cover = item("cover");
  auto* watermark = item("watermark");
  ASSERT_TRUE(cover && watermark);
  click(item("videoRect"));  // a touch: the idle timer starts
  clock_->advance(14.9);
  test::settle();
  EXPECT_FALSE(cover->isVisible());
  clock_->advance(0.2);
  ASSERT_TRUE(test::spinUntil([&] { return cover->isVisible() && cover->opacity() == 1.0; }));
  EXPECT_TRUE(watermark->isVisible());
  grab("idle-cover");
  clock_->advance(15.0);
  EXPECT_TRUE(test::spinUntil([&] { return !watermark->isVisible(); }));
  EXPECT_TRUE(cover->isVisible());
  click(cover);
  EXPECT_TRUE(test::spinUntil([&] { return !cover->isVisible(); }));
  qApp->removeEventFilter(&input);
}

// The close button ends the session as the user's, and the window goes back
// to the main page.
TEST_F(LiveWindowTest, TheCloseButtonReturnsToTheMainPage) {
  open(360, 720);  // turned: the press goes through the quarter turn
  click(item("closeButton"));
  EXPECT_TRUE(test::spinUntil([&] { return owner_->closedByUser.has_value(); }));
  EXPECT_EQ(owner_->closedByUser, std::optional<bool>(true));
  ASSERT_TRUE(test::spinUntil([&] { return shell_->liveScreen() == nullptr; }));
  EXPECT_TRUE(test::spinUntil([&] { return item("mainPage") && item("mainPage")->isVisible(); }));
}

}  // namespace
}  // namespace oxelo
