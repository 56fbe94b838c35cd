#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <sstream>

#include "platform/audio/AudioBackend.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "shell/AppDelegate.h"
#include "shell/CameraCommands.h"
#include "shell/qt/PreviewItem.h"
#include "shell/qt/QtMainQueue.h"
#include "shell/qt/QtWindow.h"
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
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "live-window-test";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance()) new QGuiApplication(argc, argv);
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
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
    if (shell_ && shell_->live()) {
      Queue::DrivingScope onMain(*main_);
      shell_->live()->shutdown();
    }
    engine_.reset();
    shell_.reset();
    driver_.reset();
    main_->stop();
    MainQueue::set(nullptr);
  }

  // Opens the window at `width` x `height` and the live screen in it.
  void open(int width, int height) {
    driver_ = std::make_unique<QtMainQueue>(main_);
    shell_ = std::make_shared<QtShell>(std::make_shared<QtMainScreen>(), QtLiveScreen::Sources{},
                                       nullptr);
    engine_ = std::make_unique<QQmlApplicationEngine>();
    ASSERT_TRUE(loadWindow(*engine_, *shell_));
    window_ = qobject_cast<QQuickWindow*>(engine_->rootObjects().first());
    ASSERT_NE(window_, nullptr);
    window_->resize(width, height);
    main_->post([this] { shell_->presentLiveScreen(owner_); });
    ASSERT_TRUE(spinUntil([&] { return preview() && preview()->shownImage(); }))
        << "no camera picture reached the screen";
  }

  template <typename Done>
  static bool spinUntil(Done done, int milliseconds = 10000) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < milliseconds)
      QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return done();
  }
  // Lets the loop run a few rounds, for changes that carry no sign of their end.
  static void settle() {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 150) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
  }

  QQuickItem* item(const char* name) const {
    return window_->findChild<QQuickItem*>(QString::fromLatin1(name));
  }
  PreviewItem* preview() const { return window_ ? window_->findChild<PreviewItem*>() : nullptr; }
  QImage grab(const char* shotName) const {
    QImage image = window_->grabWindow();
    if (auto dir = qgetenv("OXELO_SCREENSHOT_DIR"); !dir.isEmpty()) {
      QDir().mkpath(QString::fromLocal8Bit(dir));
      image.save(QString::fromLocal8Bit(dir) + "/" + shotName + ".png");
    }
    return image;
  }
  OXLiveSession& session() { return *shell_->live()->controller()->session(); }
  void hostCommand(uint32_t command, int32_t p1) {
    main_->post([this, command, p1] { session().socketClientCommand(nullptr, {command, p1, 0}); });
  }

  test::TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<Queue> main_ = Queue::createDriven("main");
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
  QRectF videoRect;  // worked out by hand for a 16:9 picture
};

class LiveWindowLayoutTest : public LiveWindowTest,
                             public ::testing::WithParamInterface<WindowCase> {};

// The camera's corner patches (an eighth of the picture each way) show at
// the corners of the video rectangle, whatever the window's shape: the
// picture fills the rectangle, and the rectangle is where the layout puts it.
TEST_P(LiveWindowLayoutTest, CornerPatchesFillTheVideoRectangle) {
  const auto& c = GetParam();
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
      {r.left() + in, r.top() + in, Colour::red},
      {r.right() - in, r.top() + in, Colour::green},
      {r.left() + in, r.bottom() - in, Colour::blue},
      {r.right() - in, r.bottom() - in, Colour::white},
      // Just past the patches, towards the middle: the moving picture, not a patch.
      {r.left() + r.width() / 8 + in, r.top() + r.height() / 8 + in, Colour::red},
  };
  for (size_t i = 0; i < std::size(probes); ++i) {
    const QRgb pixel = shot.pixel(int(probes[i].x), int(probes[i].y));
    const bool expected = i < 4;
    EXPECT_EQ(looksLike(pixel, probes[i].colour), expected)
        << "probe " << i << " at " << probes[i].x << "," << probes[i].y << ": " << qRed(pixel)
        << " " << qGreen(pixel) << " " << qBlue(pixel);
  }
  if (r.top() > 0) {
    EXPECT_TRUE(looksLike(shot.pixel(int(r.center().x()), int(r.top()) - 3), Colour::black));
    EXPECT_TRUE(looksLike(shot.pixel(int(r.center().x()), int(r.bottom()) + 3), Colour::black));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Windows, LiveWindowLayoutTest,
    ::testing::Values(WindowCase{"landscape", 1280, 720, QRectF(0, 0, 1280, 720)},
                      WindowCase{"portrait", 360, 720, QRectF(0, 258.75, 360, 202.5)},
                      WindowCase{"desktop", 1000, 700, QRectF(0, 68.75, 1000, 562.5)}),
    [](const auto& info) { return std::string(info.param.name); });

// The host's commands change the session; the buttons and the lock label
// follow it on screen.
TEST_F(LiveWindowTest, ButtonsFollowTheHostsCommands) {
  open(1280, 720);
  auto* mirror = item("mirrorButton");
  auto* beauty = item("beautyButton");
  auto* record = item("recordButton");
  auto* lock = item("lockLabel");
  ASSERT_TRUE(mirror && beauty && record && lock);
  EXPECT_FALSE(mirror->property("selected").toBool());
  EXPECT_FALSE(lock->isVisible());

  hostCommand(wire::kHostMirror, 1);
  hostCommand(wire::kHostBeauty, 1);
  hostCommand(wire::kHostRecording, 1);
  hostCommand(wire::kHostAeafLock, 1);
  ASSERT_TRUE(spinUntil([&] { return lock->isVisible(); }));
  EXPECT_TRUE(mirror->property("selected").toBool());
  EXPECT_TRUE(beauty->property("selected").toBool());
  EXPECT_TRUE(record->property("selected").toBool());
  EXPECT_EQ(lock->property("color").value<QColor>(), QColor("yellow"));
  settle();
  const QPointF centre = lock->mapToScene(QPointF(3, lock->height() / 2));
  EXPECT_EQ(QColor(grab("lock").pixel(centre.toPoint())), QColor("yellow"));

  hostCommand(wire::kHostAeafLock, 2);
  hostCommand(wire::kHostMirror, 0);
  ASSERT_TRUE(spinUntil([&] { return !mirror->property("selected").toBool(); }));
  EXPECT_EQ(lock->property("color").value<QColor>(), QColor("orange"));
  hostCommand(wire::kHostAeafLock, 0);
  EXPECT_TRUE(spinUntil([&] { return !lock->isVisible(); }));
}

}  // namespace
}  // namespace oxelo
