#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QPalette>
#include <QProcess>
#include <QQmlApplicationEngine>
#include <QQmlContext>
#include <QQmlExpression>
#include <QQuickItem>
#include <QQuickWindow>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "discovery/HostList.h"
#include "discovery/MainViewController.h"
#include "platform/audio/AudioBackend.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "platform/dispatch/MainQueue.h"
#include "shell/AppDelegate.h"
#include "shell/CameraCommands.h"
#include "shell/qt/QtMainQueue.h"
#include "shell/qt/QtOptions.h"
#include "shell/qt/QtWindow.h"
#include "tests/shell/support/WindowTestBase.h"
#include "tests/support/FakeBatteryMonitor.h"
#include "tests/support/FakeCarrier.h"
#include "tests/support/FakeLifecycle.h"
#include "tests/support/FakeReachability.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

// The flow over `screen`, with every probe and listener on loopback, shown.
std::shared_ptr<MainViewController> startFlow(std::shared_ptr<QtMainScreen> screen,
                                              std::shared_ptr<LiveScreenPresenter> presenter,
                                              std::shared_ptr<Reachability> wifi,
                                              MainViewController::Connector connector) {
  MainViewController::Services s;
  s.screen = screen;
  s.presenter = std::move(presenter);
  s.reachability = wifi;
  s.battery = std::make_shared<FakeBatteryMonitor>(BatteryState::unplugged, 1.0f);
  s.lifecycle = std::make_shared<FakeLifecycle>();
  s.connector = std::move(connector);
  s.listenPort = s.usbPort = s.probes.udpPort = 0;
  s.probes.probeFirstPort = 1;  // nothing answers there
  s.probes.subnetBroadcast = [] { return std::string(); };
  s.probes.limitedBroadcast = "127.0.0.1";
  auto flow = MainViewController::create(std::move(s));
  screen->attach(flow, std::move(wifi));
  flow->viewDidLoad();
  flow->viewDidAppear();
  return flow;
}

// The main page on the offscreen platform over the real connection flow,
// with Wi-Fi faked on and every probe and listener on loopback. The main
// queue's timers wait for the test's clock. With OXELO_SCREENSHOT_DIR set,
// the grabs are also written there (scripts/screenshots).
class MainWindowTest : public test::ShellWindowTestBase {
 protected:
  void SetUp() override {
    ShellWindowTestBase::SetUp();
    defaults_->setBool(keys::autoConnect, false);  // the play button connects
  }

  void closeScreens() override {
    if (flow_) flow_->shutdown();
  }
  void TearDown() override {
    ShellWindowTestBase::TearDown();
    if (host_.state() != QProcess::NotRunning) {
      host_.kill();
      host_.waitForFinished();
    }
  }

  // A connector that only notes where the flow would connect.
  using Attempts = std::vector<std::pair<std::string, uint16_t>>;
  MainViewController::Connector noteAttempts() {
    return [this](const std::string& host, uint16_t port, double, std::weak_ptr<CarrierDelegate>,
                  OptionalError&) -> std::shared_ptr<Carrier> {
      attempts_.emplace_back(host, port);
      return nullptr;
    };
  }
  // The window at `width` x `height` with the flow searching, the options
  // page behind its button; the host side decodes HEVC.
  void open(int width, int height, MainViewController::Connector connector = {}) {
    driver_ = std::make_unique<QtMainQueue>(main_);
    screen_ = std::make_shared<QtMainScreen>();
    screen_->setAddressSource([] { return std::string("192.168.1.23"); });
    QtLiveScreen::Sources sources;
    sources.services.view.sources.environment.socket.hevcDecodeSupported = true;
    shell_ = std::make_shared<QtShell>(screen_, sources);
    engine_ = std::make_unique<QQmlApplicationEngine>();
    QtOptions::Sources options;
    options.defaults = defaults_;
    options.device.hevcDecodeSupported = true;
    registerOptions(*engine_, options);
    showWindow(width, height);
    if (HasFatalFailure()) return;
    flow_ = startFlow(screen_, shell_, wifi_, std::move(connector));
    test::settle();
  }
  QString text(const char* name) const { return item(name)->property("text").toString(); }
  void advance(double seconds) {
    clock_->advance(seconds);
    test::settle();
  }
  // Whether an item of a popup (found only while the popup shows) is seen.
  bool shown(const char* name) const { return item(name) && item(name)->isVisible(); }
  // Opens the manual sheet with the plus button.
  bool openManualSheet() {
    test::tap(window_, item("addButton"));
    return test::spinUntil([&] { return shown("manualOk"); });
  }

  std::shared_ptr<FakeReachability> wifi_ =
      std::make_shared<FakeReachability>(NetworkStatus::reachableViaWiFi);
  std::shared_ptr<QtMainScreen> screen_;
  std::shared_ptr<MainViewController> flow_;
  QProcess host_;
  Attempts attempts_;
};

struct Shape {
  const char* name;
  int width, height;
};

class MainWindowShapeTest : public MainWindowTest, public ::testing::WithParamInterface<Shape> {
 protected:
  std::string shot(const char* what) const {
    return std::string("main-") + what + "-" + GetParam().name;
  }
};

// Searching, two computers answer, the play button asks which one, and the
// second is connected; then a new search and the manual sheet with the last
// address. What the page shows at each step is checked and grabbed.
TEST_P(MainWindowShapeTest, SearchFindsTwoComputersAndTheSecondIsChosen) {
  open(GetParam().width, GetParam().height, noteAttempts());
  ASSERT_TRUE(test::spinUntil([&] { return text("stateLine") == "Searching for computers…"; }))
      << text("stateLine").toStdString();
  EXPECT_TRUE(item("radar")->isVisible());
  EXPECT_FALSE(item("phonePicture")->isVisible());
  EXPECT_EQ(text("ownAddress"), "192.168.1.23");
  test::settle(300);
  test::grabShot(window_, shot("searching").c_str());

  flow_->on_host_detected({"studio", "127.0.0.1", 5901, true});
  flow_->on_host_detected({"desk", "127.0.0.2", 5902, true});
  advance(0.5);  // the burst of answers has ended
  EXPECT_EQ(text("stateLine"), "Found 2 computers");
  EXPECT_FALSE(item("radar")->isVisible());
  EXPECT_TRUE(item("phonePicture")->property("found").toBool());
  EXPECT_FALSE(screen_->playState());  // the plus turns to play half a second later
  advance(0.5);
  EXPECT_TRUE(item("computerPicture")->property("found").toBool());
  ASSERT_TRUE(screen_->playState());
  test::settle(700);  // the cross-fades
  test::grabShot(window_, shot("found").c_str());

  test::tap(window_, item("addButton"));
  ASSERT_TRUE(test::spinUntil([&] { return shown("hostChoice1"); }));
  EXPECT_EQ(text("hostChoice0"), "studio");
  EXPECT_EQ(text("hostChoice1"), "desk");
  test::settle();
  test::tap(window_, item("hostChoice1"));
  ASSERT_TRUE(test::spinUntil([&] { return !attempts_.empty(); }));
  EXPECT_EQ(attempts_, Attempts({{"127.0.0.2", 5902}}));
  EXPECT_TRUE(test::spinUntil([&] { return !shown("hostChoiceCancel"); }));

  defaults_->setString(keys::lastHostIP, "10.1.2.3");
  test::tap(window_, item("refreshButton"));
  advance(0.5);
  ASSERT_EQ(text("stateLine"), "Searching for computers…");
  EXPECT_FALSE(screen_->playState());
  ASSERT_TRUE(openManualSheet());
  EXPECT_EQ(text("manualAddress"), "10.1.2.3");
  EXPECT_EQ(text("manualInstance"), "1");
  test::settle();
  test::grabShot(window_, shot("manual").c_str());
}

INSTANTIATE_TEST_SUITE_P(Shapes, MainWindowShapeTest,
                         ::testing::Values(Shape{"portrait", 360, 720},
                                           Shape{"landscape", 720, 360}),
                         [](const auto& info) { return std::string(info.param.name); });

// A new user's first runs against the reference host: its address and
// instance 16 (port 5910) typed into the sheet open the live screen; when the
// host has ended the session, the options page changes the size and the
// codec, and the next connection streams what they say, as the host's
// report shows.
TEST_F(MainWindowTest, ANewUserConnectsChangesSizeAndCodecAndReconnects) {
  QByteArray hostLog;
  const auto reportPath = [&](int run) {
    return dir_.path() / ("host" + std::to_string(run) + ".json");
  };
  auto startHost = [&](int run) {
    hostLog.clear();
    host_.setProcessChannelMode(QProcess::MergedChannels);
    host_.start(OXELO_HOST_BIN,
                {"listen", "--bind", "127.0.0.1", "--port", "5910", "--wait", "15", "--duration",
                 "1", "--end", "24", "--report", QString::fromStdString(reportPath(run).string())});
    return test::spinUntil([&] {
             hostLog += host_.readAll();
             return hostLog.contains("host - listening") || host_.state() == QProcess::NotRunning;
           }) &&
           host_.state() == QProcess::Running;
  };
  auto connectThroughTheSheet = [&] {
    ASSERT_TRUE(openManualSheet());
    item("manualAddress")->setProperty("text", " 127.0.0.1 ");
    item("manualInstance")->setProperty("text", "16");
    test::tap(window_, item("manualOk"));
    advance(0.1);  // the flow connects a tenth of a second after the sheet
    EXPECT_EQ(text("stateLine"), "Connect to 127.0.0.1");
    ASSERT_TRUE(test::spinUntil([&] { return shell_->live() != nullptr; }))
        << (hostLog + host_.readAll()).toStdString();
  };
  // What the host saw of the stream, once it has ended and the live screen
  // has closed.
  auto streamInfo = [&](int run) {
    EXPECT_TRUE(host_.waitForFinished(15000)) << hostLog.toStdString();
    EXPECT_TRUE(test::spinUntil([&] { return shell_->live() == nullptr && shown("mainPage"); }));
    std::ifstream in(reportPath(run));
    const auto report = nlohmann::json::parse(in, nullptr, /*allow_exceptions=*/false);
    return report.is_discarded() ? nlohmann::json() : report["stream"]["info"];
  };

  ASSERT_TRUE(startHost(1)) << hostLog.toStdString();
  open(360, 720);
  connectThroughTheSheet();
  EXPECT_TRUE(flow_->hasLiveScreen());
  EXPECT_FALSE(item("stack")->isVisible());
  EXPECT_EQ(defaults_->stringForKey(keys::lastHostIP), "127.0.0.1");
  EXPECT_EQ(defaults_->integerForKey(keys::lastHostPort), 5910);
  const auto first = streamInfo(1);
  EXPECT_EQ(first.value("width", 0), 1280) << first.dump();
  EXPECT_EQ(first.value("video_encoder", -1), 0);

  test::tap(window_, item("optionsButton"));
  ASSERT_TRUE(test::spinUntil(
      [&] { return shown("cell_videoSize") && !item("stack")->property("busy").toBool(); }));
  ASSERT_TRUE(test::chooseSheetEntry(window_, "cell_videoSize", QString::fromUtf8("640 × 480")));
  ASSERT_TRUE(test::chooseSheetEntry(window_, "cell_encoder", "HEVC"));
  test::tap(window_, item("optionsDone"));
  ASSERT_TRUE(test::spinUntil([&] {
    return item("stack")->property("depth").toInt() == 1 &&
           !item("stack")->property("busy").toBool();
  }));

  ASSERT_TRUE(startHost(2)) << hostLog.toStdString();
  connectThroughTheSheet();
  const auto second = streamInfo(2);
  EXPECT_EQ(second.value("width", 0), 640) << second.dump();
  EXPECT_EQ(second.value("height", 0), 480);
  EXPECT_EQ(second.value("video_encoder", -1), 1);
}

// A page over the main page stops the search until it goes (unless closed
// for the live screen); a dark palette darkens the radar's disc; a long press
// lists the remembered hosts, connects the chosen one, and clears them all.
TEST_F(MainWindowTest, HistorySheetPagesOverTheMainPageAndTheDarkPalette) {
  HostList::remember("desk", "10.0.0.6", 5895);
  HostList::remember("studio", "10.0.0.5", 5897);
  open(360, 720, noteAttempts());
  auto* stack = item("stack");
  auto run = [&](const char* script) {
    QQmlExpression(qmlContext(stack), stack, script).evaluate();
  };
  run("push(Qt.createQmlObject('import QtQuick; Item {}', this))");
  EXPECT_FALSE(screen_->isViewInWindow() || flow_->hostDiscovering());
  run("pop()");
  EXPECT_TRUE(screen_->isViewInWindow() && flow_->hostDiscovering());
  run("push(Qt.createQmlObject('import QtQuick; Item {}', this))");
  screen_->dismissPresented();
  EXPECT_EQ(stack->property("depth").toInt(), 1);
  EXPECT_TRUE(screen_->isViewInWindow() && !flow_->hostDiscovering());

  auto disc = [&] { return item("radar")->property("thumbnailColor").value<QColor>(); };
  EXPECT_EQ(disc(), QColor(Qt::white));
  const QPalette light = QGuiApplication::palette();
  QPalette dark = light;
  dark.setColor(QPalette::Window, QColor(30, 30, 30));
  QGuiApplication::setPalette(dark);
  EXPECT_EQ(disc(), QColor::fromRgbF(0.1f, 0.1f, 0.1f));
  QGuiApplication::setPalette(light);

  auto longPress = [&] { QMetaObject::invokeMethod(item("addButton"), "pressAndHold"); };
  longPress();
  ASSERT_TRUE(test::spinUntil([&] { return shown("historyChoice1"); }));
  EXPECT_EQ(text("historyChoice0"), "studio (10.0.0.5)");
  EXPECT_EQ(text("historyChoice1"), "desk (10.0.0.6)");
  test::grabShot(window_, "main-history");
  test::tap(window_, item("historyChoice1"));
  advance(0.1);
  EXPECT_EQ(attempts_, Attempts({{"10.0.0.6", 5895}}));
  longPress();
  test::tap(window_, item("historyClearAll"));
  for (auto key : {keys::hostHistory, keys::lastHostName, keys::lastHostPort})
    EXPECT_TRUE(defaults_->objectForKey(key).is_null()) << key;
  EXPECT_TRUE(flow_->hostDiscovering()) << "a new search, as none ran";
  longPress();
  ASSERT_TRUE(test::spinUntil([&] { return shown("manualOk"); }));
  EXPECT_EQ(text("manualAddress"), "10.0.0.5");
}

// The state line, with no window: what each state of the flow leaves in it.
TEST(StateLineTest, EachStateOfTheFlowLeavesItsLine) {
  test::ManualMain env;
  test::TempDir dir;
  UserDefaults::setStandard(std::make_shared<UserDefaults>(dir.path()));
  UserDefaults::standard()->setBool(keys::autoConnect, false);
  auto screen = std::make_shared<QtMainScreen>();
  auto wifi = std::make_shared<FakeReachability>();
  // Port 5999 refuses; any other gets a carrier that is still connecting.
  auto flow =
      startFlow(screen, std::make_shared<QtShell>(screen, QtLiveScreen::Sources{}), wifi,
                [](const std::string&, uint16_t port, double, std::weak_ptr<CarrierDelegate>,
                   OptionalError& error) -> std::shared_ptr<Carrier> {
                  if (port != 5999) return std::make_shared<test::FakeCarrier>();
                  error = Error{kPosixErrorDomain, 111, "Connection refused", ""};
                  return nullptr;
                });
  using Line = std::tuple<std::string, std::string, bool>;
  auto line = [&] {
    return Line(screen->stateKey().toStdString(), screen->stateArgument().toStdString(),
                screen->stateIsError());
  };
  EXPECT_EQ(line(), Line("M_NO_WIFI", "", true));
  EXPECT_FALSE(screen->buttonsEnabled());
  wifi->setReachableViaWiFi(true);
  env.drain();
  EXPECT_EQ(line(), Line("M_SEARCHING", "", false));
  EXPECT_TRUE(screen->buttonsEnabled());
  const HostRecord studio{"studio", "127.0.0.1", 5901, true};
  flow->on_host_detected(studio);
  env.advance(0.5);
  EXPECT_EQ(line(), Line("M_FOUND_OXELO", "studio", false));
  flow->on_host_detected({"desk", "127.0.0.2", 5902, true});
  env.advance(0.5);
  flow->on_host_removed(studio);
  EXPECT_EQ(line(), Line("M_FOUND_OXELO", "desk", false));
  flow->connectManually("127.0.0.1", "3");
  env.advance(0.1);
  EXPECT_EQ(line(), Line("M_CONNECT_TO", "127.0.0.1", false));
  EXPECT_EQ(screen->hudKey(), "M_CONNECT_TO");
  flow->connectViaIPAndPort("127.0.0.1", 5999);
  env.advance(0.1);
  EXPECT_EQ(line(), Line("Connection refused", "", true)) << "a text that is no key shows whole";
  flow->shutdown();
  UserDefaults::setStandard(nullptr);
}

}  // namespace
}  // namespace oxelo
