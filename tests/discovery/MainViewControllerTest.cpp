#include <gtest/gtest.h>

#include "tests/support/FakeLifecycle.h"
#include "discovery/MainViewController.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/support/FakeBatteryMonitor.h"
#include "tests/support/FakeReachability.h"
#include "tests/discovery/support/FlowFakes.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

HostRecord host(const std::string& name, const std::string& ip, long long port = 5895,
                bool udp = true) {
  return {name, ip, port, udp};
}

// The flow with every platform service faked: no Wi-Fi, no cable, the screen
// in its window, the listeners on free loopback ports.
class FlowTest : public testing::Test {
 protected:
  void SetUp() override {
    defaults_ = std::make_shared<UserDefaults>(dir_.path());
    defaults_->registerDefaults({{keys::autoConnect, true}});
    UserDefaults::setStandard(defaults_);
    MainViewController::Services s;
    s.screen = screen_;
    s.presenter = presenter_;
    s.reachability = reachability_;
    s.battery = battery_;
    s.lifecycle = lifecycle_;
    s.listenPort = 0;
    s.usbPort = 0;
    flow_ = MainViewController::create(s);
    flow_->viewDidLoad();
    env_.drain();
  }
  void TearDown() override {
    flow_->shutdown();
    env_.drain();
    UserDefaults::setStandard(nullptr);
  }

  test::ManualMain env_;
  test::TempDir dir_;
  test::LogCapture log_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<test::FakeMainScreen> screen_ = std::make_shared<test::FakeMainScreen>();
  std::shared_ptr<test::FakePresenter> presenter_ = std::make_shared<test::FakePresenter>();
  std::shared_ptr<FakeReachability> reachability_ = std::make_shared<FakeReachability>();
  std::shared_ptr<FakeBatteryMonitor> battery_ = std::make_shared<FakeBatteryMonitor>();
  std::shared_ptr<FakeLifecycle> lifecycle_ = std::make_shared<FakeLifecycle>();
  std::shared_ptr<MainViewController> flow_;
  // A loopback listener whose backlog takes connections, so that an attempt
  // stays connected for as long as the test looks.
  test::LoopbackListener listener_;
  long long port_ = listener_.port();
};

TEST_F(FlowTest, StartValuesAndNoSearchWithoutWiFiOrCable) {
  EXPECT_TRUE(flow_->autoStart());
  EXPECT_FALSE(flow_->usbPlugged());
  flow_->discover();
  EXPECT_FALSE(flow_->hostDiscovering());
  EXPECT_EQ(screen_->discoverStates, (std::vector<bool>{false}));
  EXPECT_FALSE(flow_->isListening());
}

TEST_F(FlowTest, OneHostDetectedSettlesAfterHalfASecondAndConnects) {
  flow_->on_host_detected(host("Desk", "127.0.0.1", port_));
  EXPECT_TRUE(flow_->hostDetected());
  EXPECT_EQ(flow_->hostName(), "Desk");
  env_.advance(0.45);
  EXPECT_FALSE(flow_->hasAsyncSocket());
  env_.advance(0.1);
  EXPECT_TRUE(flow_->hasAsyncSocket());  // connecting to the one host
}

TEST_F(FlowTest, BurstOfHostsEndsInOneSettleHalfASecondAfterTheLast) {
  flow_->on_host_detected(host("A", "10.0.0.1"));
  env_.advance(0.4);
  flow_->on_host_detected(host("B", "10.0.0.2"));
  env_.advance(0.4);
  EXPECT_EQ(screen_->discoveredCount, 0);
  env_.advance(0.15);
  EXPECT_EQ(screen_->discoveredCount, 1);
  EXPECT_EQ(screen_->choices.size(), 1u);  // two unknown hosts: the user chooses
}

TEST_F(FlowTest, TwoHostsOneOfThemTheLastHostIsConnectedWithoutAQuestion) {
  defaults_->setString(keys::lastHostIP, "127.0.0.1");
  defaults_->setString(keys::lastHostName, "Desk");
  flow_->on_host_detected(host("Other", "127.0.0.2", 1));
  flow_->on_host_detected(host("Desk", "127.0.0.1", port_));
  env_.advance(0.6);
  EXPECT_TRUE(screen_->choices.empty());
  EXPECT_EQ(flow_->hostName(), "Desk");
  EXPECT_EQ(flow_->hostPort(), port_);
  EXPECT_TRUE(flow_->hasAsyncSocket());
}

TEST_F(FlowTest, LastHostMatchTakesTheNameWithItsCase) {
  defaults_->setString(keys::lastHostIP, "127.0.0.1");
  defaults_->setString(keys::lastHostName, "desk");
  flow_->on_host_detected(host("Other", "127.0.0.2"));
  flow_->on_host_detected(host("Desk", "127.0.0.1"));
  env_.advance(0.6);
  EXPECT_EQ(screen_->choices.size(), 1u);
}

TEST_F(FlowTest, CancelledChoiceStopsAutomaticConnectingUntilAutoStartIsSetAgain) {
  flow_->on_host_detected(host("A", "10.0.0.1"));
  flow_->on_host_detected(host("B", "10.0.0.2"));
  env_.advance(0.6);
  ASSERT_EQ(screen_->choices.size(), 1u);
  screen_->choices[0].second(std::nullopt);
  EXPECT_FALSE(flow_->autoStart());
  flow_->on_host_detected(host("C", "10.0.0.3"));
  env_.advance(0.6);
  EXPECT_EQ(screen_->choices.size(), 1u);  // no new question
  flow_->refresh();
  EXPECT_TRUE(flow_->autoStart());
}

TEST_F(FlowTest, ChoosingAHostConnectsToIt) {
  flow_->on_host_detected(host("A", "127.0.0.1", port_));
  flow_->on_host_detected(host("B", "127.0.0.2", 0));
  env_.advance(0.6);
  ASSERT_EQ(screen_->choices.size(), 1u);
  EXPECT_EQ(screen_->choices[0].first.size(), 2u);
  screen_->choices[0].second(1);
  EXPECT_EQ(flow_->hostIP(), "127.0.0.2");
  EXPECT_EQ(flow_->hostPort(), 5895);  // port 0 is connected on 5895
}

TEST_F(FlowTest, SameHostInOtherCaseOrFromTheOtherPathStaysOneEntryWithTheFirstRecord) {
  flow_->on_host_detected(host("Desk", "10.0.0.9", 5895, true));
  flow_->on_host_detected(host("DESK", "10.0.0.9", 5897, false));
  ASSERT_EQ(flow_->arr_hosts().size(), 1u);
  EXPECT_EQ(flow_->arr_hosts()[0], host("Desk", "10.0.0.9", 5895, true));
  EXPECT_TRUE(log_.contains("Host DESK already exists!"));
}

TEST_F(FlowTest, HostLeavingRemovesOnlyTheIdenticalRecord) {
  flow_->on_host_detected(host("A", "10.0.0.1", 5895, false));
  flow_->on_host_detected(host("B", "10.0.0.2"));
  env_.advance(0.6);
  // A UDP goodbye for a host found by service discovery removes nothing...
  flow_->on_host_removed(host("A", "10.0.0.1", 5895, true));
  EXPECT_EQ(flow_->arr_hosts().size(), 2u);
  // ...the exact record does, and the one left becomes the current host.
  flow_->on_host_removed(host("A", "10.0.0.1", 5895, false));
  ASSERT_EQ(flow_->arr_hosts().size(), 1u);
  EXPECT_EQ(flow_->hostName(), "B");
}

TEST_F(FlowTest, DisconnectBeforeTheLiveScreenSchedulesANewSearchIn600Seconds) {
  battery_->setCablePlugged(true);  // a search needs Wi-Fi or a cable
  env_.drain();
  flow_->connectViaIPAndPort("127.0.0.1", test::closedLoopbackPort());
  env_.advance(0.1);
  ASSERT_TRUE(test::pumpUntil(env_, [&] { return !flow_->hasAsyncSocket(); }));
  EXPECT_EQ(screen_->errors.size(), 1u);  // a manual attempt shows the error
  EXPECT_FALSE(flow_->hostIP().has_value());
  int searches = screen_->discoverTrueCount();
  env_.advance(599.0, 1.0);
  EXPECT_EQ(screen_->discoverTrueCount(), searches);
  env_.advance(1.5, 0.5);
  EXPECT_EQ(screen_->discoverTrueCount(), searches + 1);
}

TEST_F(FlowTest, ManualConnectionWaitsATenthOfASecond) {
  flow_->connectManually("127.0.0.1", "17");
  EXPECT_EQ(flow_->hostPort(), 5895);
  EXPECT_EQ(flow_->hostName(), "Unknown");
  EXPECT_FALSE(flow_->hasAsyncSocket());
  EXPECT_TRUE(screen_->huds.empty());
  env_.advance(0.1);
  EXPECT_EQ(screen_->huds, (std::vector<std::string>{"M_CONNECT_TO 127.0.0.1"}));
  flow_->connectManually("", "3");  // an empty address does nothing
  env_.advance(0.2);
  EXPECT_EQ(screen_->huds.size(), 1u);
}

TEST_F(FlowTest, ViewDidAppearRules) {
  // No host known: a search (here without Wi-Fi or cable it ends at once).
  flow_->viewDidAppear();
  EXPECT_EQ(screen_->discoverStates.back(), false);
  // A host known and autoStart: connect.
  flow_->on_host_detected(host("A", "127.0.0.1", port_));
  flow_->viewDidAppear();
  EXPECT_TRUE(flow_->hasAsyncSocket());
}

TEST_F(FlowTest, ShortBackgroundStartsNoSearchButRereadsAutoConnect) {
  battery_->setCablePlugged(true);
  env_.drain();
  flow_->on_host_detected(host("A", "10.0.0.1"));
  env_.advance(0.6);
  lifecycle_->sendEvent(LifecycleEvent::didEnterBackground);
  env_.drain();
  EXPECT_FALSE(flow_->autoStart());
  int searches = screen_->discoverTrueCount();
  env_.advance(59.0, 1.0);
  lifecycle_->sendEvent(LifecycleEvent::willEnterForeground);
  env_.drain();
  EXPECT_TRUE(flow_->autoStart());
  EXPECT_EQ(screen_->discoverTrueCount(), searches);
  // A long one searches again.
  lifecycle_->sendEvent(LifecycleEvent::didEnterBackground);
  env_.advance(61.0, 1.0);
  lifecycle_->sendEvent(LifecycleEvent::willEnterForeground);
  env_.drain();
  EXPECT_EQ(screen_->discoverTrueCount(), searches + 1);
}

TEST_F(FlowTest, CableEventsOpenAndCloseTheUsbListener) {
  battery_->setCablePlugged(true);
  env_.drain();
  EXPECT_TRUE(flow_->usbPlugged());
  EXPECT_TRUE(flow_->hostDiscovering());
  EXPECT_TRUE(flow_->isUsbListening());
  EXPECT_TRUE(flow_->isListening());  // 5896 for the host that calls
  battery_->setCablePlugged(false);
  env_.drain();
  EXPECT_FALSE(flow_->usbPlugged());
  EXPECT_FALSE(flow_->isUsbListening());
  EXPECT_TRUE(log_.contains("停止 USB 侦听！"));
}

TEST_F(FlowTest, ShowLiveViewRemembersTheHostAndItsHistory) {
  flow_->connectViaIPAndPort("10.0.0.5", 5897);
  flow_->showLiveView();
  EXPECT_EQ(presenter_->presented, 1);
  EXPECT_TRUE(flow_->hasLiveScreen());
  EXPECT_EQ(defaults_->stringForKey(keys::lastHostIP), "10.0.0.5");
  EXPECT_EQ(defaults_->integerForKey(keys::lastHostPort), 5897);
  EXPECT_EQ(defaults_->arrayForKey(keys::hostHistory),
            Json::array({{{"name", "Unknown"}, {"ip", "10.0.0.5"}, {"port", 5897}}}));
}

}  // namespace
}  // namespace oxelo

#include "media/VideoSizeCatalogue.h"
#include "wire/HandshakePackets.h"

namespace oxelo {
namespace {

namespace hs = handshake;

std::vector<uint8_t> join(std::initializer_list<std::vector<uint8_t>> parts) {
  std::vector<uint8_t> out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

// The greeting as the flow reads it from a TCP block. The socket is an idle
// one: the read the flow arms behind each block is dropped, as on a socket
// that is not connected.
class HandshakeFlowTest : public FlowTest {
 protected:
  void SetUp() override {
    FlowTest::SetUp();
    presenter_->prepareOnPresent = true;
    VideoSizeCatalogue::shared().reloadVideoSizes();
  }
  void feed(const std::vector<uint8_t>& block) {
    flow_->socketDidReadData(idle_.get(), block, hs::kTagRead);
  }
  std::shared_ptr<GCDAsyncSocket> idle_ = GCDAsyncSocket::create({}, MainQueue::get());
};

TEST_F(HandshakeFlowTest, HostInfoSettingsAndStartInOneBlockAreWorkedOffInOrder) {
  feed(join(
      {hs::hostInfo(5899, "Studio"), hs::videoSettings({640, 480, 24, 1, 2, 1, 2}), hs::start()}));
  EXPECT_EQ(flow_->hostName(), "Studio");
  EXPECT_EQ(flow_->hostPort(), 5899);
  EXPECT_TRUE(flow_->hostDetected());
  EXPECT_EQ(defaults_->integerForKey(keys::videoWidth), 640);
  EXPECT_EQ(defaults_->integerForKey(keys::videoHeight), 480);
  EXPECT_EQ(defaults_->integerForKey(keys::videoFPS), 24);
  EXPECT_TRUE(defaults_->boolForKey(keys::videoPortrait));
  EXPECT_EQ(defaults_->integerForKey(keys::videoEncoder), 1);
  EXPECT_EQ(defaults_->integerForKey(keys::audioFormat), 2);
  EXPECT_EQ(presenter_->presented, 1);  // the start opened the live screen
}

TEST_F(HandshakeFlowTest, APacketSplitAcrossTwoReadsIsCompletedByTheSecond) {
  auto info = hs::hostInfo(5898, "Split");
  feed(std::vector<uint8_t>(info.begin(), info.begin() + 30));
  EXPECT_FALSE(flow_->hostDetected());
  feed(join({std::vector<uint8_t>(info.begin() + 30, info.end()), hs::start()}));
  EXPECT_EQ(flow_->hostName(), "Split");
  EXPECT_EQ(presenter_->presented, 1);
}

TEST_F(HandshakeFlowTest, AnUnknownCommandDropsTheRestOfItsBlock) {
  std::vector<uint8_t> unknown = {0x88, 0, 0, 0, 0x12, 0, 0, 0};
  feed(join({unknown, hs::hostInfo(5899, "Late"), hs::start()}));
  EXPECT_FALSE(flow_->hostDetected());
  EXPECT_EQ(presenter_->presented, 0);
  // A block that does not begin with the type word is dropped as well.
  feed(join({std::vector<uint8_t>{1, 0, 0, 0}, hs::start()}));
  EXPECT_EQ(presenter_->presented, 0);
}

TEST_F(HandshakeFlowTest, ASizeOutsideTheCatalogueIsStoredButLeavesVideoSize) {
  defaults_->setInteger(keys::videoSize, 4);
  feed(hs::videoSettings({1000, 700, 30, 0, 1, 0, 1}));
  EXPECT_EQ(defaults_->integerForKey(keys::videoWidth), 1000);
  EXPECT_EQ(defaults_->integerForKey(keys::videoHeight), 700);
  EXPECT_EQ(defaults_->integerForKey(keys::videoSize), 4);
}

}  // namespace
}  // namespace oxelo
