#include <gtest/gtest.h>

#include <thread>

#include "discovery/MainViewController.h"
#include "platform/defaults/SettingsKeys.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/discovery/support/FlowFixture.h"

namespace oxelo {
namespace {

using Json = nlohmann::json;

HostRecord host(const std::string& name, const std::string& ip, long long port = 5895,
                bool udp = true) {
  return {name, ip, port, udp};
}

class FlowTest : public test::FlowFixture {
 protected:
  void SetUp() override { startFlow(); }
  size_t attempts() const { return connections_.attempts.size(); }
  std::string attempt(size_t i) const {  // "host:port"
    return connections_.attempts.at(i).host + ":" + std::to_string(connections_.attempts[i].port);
  }
};

TEST_F(FlowTest, OneHostDetectedSettlesAfterHalfASecondAndConnects) {
  flow_->on_host_detected(host("Desk", "127.0.0.1", 5897));
  EXPECT_TRUE(flow_->hostDetected());
  EXPECT_EQ(flow_->hostName(), "Desk");
  env_.advance(0.45);
  EXPECT_EQ(attempts(), 0u);
  env_.advance(0.1);
  ASSERT_EQ(attempts(), 1u);  // connecting to the one host
  EXPECT_EQ(attempt(0), "127.0.0.1:5897");
  EXPECT_EQ(connections_.attempts[0].timeout, 5.0);
  EXPECT_TRUE(flow_->hasConnection());
}

TEST_F(FlowTest, LastHostMatchTakesTheNameWithItsCase) {
  defaults_->setString(keys::lastHostIP, "127.0.0.1");
  defaults_->setString(keys::lastHostName, "desk");
  flow_->on_host_detected(host("Other", "127.0.0.2"));
  flow_->on_host_detected(host("Desk", "127.0.0.1"));
  env_.advance(0.6);
  EXPECT_EQ(screen_->choices.size(), 1u);
}

// A burst settles 0.5 s after the last host; two unknown hosts let the user choose.
TEST_F(FlowTest, BurstOfHostsAsksOnceAndACancelledChoiceStopsAutomaticConnecting) {
  flow_->on_host_detected(host("A", "10.0.0.1"));
  env_.advance(0.4);
  flow_->on_host_detected(host("B", "10.0.0.2"));
  env_.advance(0.4);
  EXPECT_EQ(screen_->discoveredCount, 0);
  env_.advance(0.15);
  EXPECT_EQ(screen_->discoveredCount, 1);
  ASSERT_EQ(screen_->choices.size(), 1u);
  screen_->choices[0].second(std::nullopt);
  EXPECT_FALSE(flow_->autoStart());
  flow_->on_host_detected(host("C", "10.0.0.3"));
  env_.advance(0.6);
  EXPECT_EQ(screen_->choices.size(), 1u);  // no new question
  flow_->refresh();
  EXPECT_TRUE(flow_->autoStart());
}

TEST_F(FlowTest, ChoosingAHostWithPortZeroConnectsOn5895) {
  flow_->on_host_detected(host("A", "127.0.0.1", 5897));
  flow_->on_host_detected(host("B", "127.0.0.2", 0));
  env_.advance(0.6);
  ASSERT_EQ(screen_->choices.size(), 1u);
  EXPECT_EQ(screen_->choices[0].first.size(), 2u);
  screen_->choices[0].second(1);
  ASSERT_EQ(attempts(), 1u);
  EXPECT_EQ(attempt(0), "127.0.0.2:5895");
}

TEST_F(FlowTest, OneEntryPerHostWithItsFirstRecordWhichAloneRemovesIt) {
  flow_->on_host_detected(host("A", "10.0.0.1", 5895, false));
  flow_->on_host_detected(host("a", "10.0.0.1", 5897, true));  // other case, other path
  flow_->on_host_detected(host("B", "10.0.0.2"));
  env_.advance(0.6);
  ASSERT_EQ(flow_->arr_hosts().size(), 2u);
  EXPECT_EQ(flow_->arr_hosts()[0], host("A", "10.0.0.1", 5895, false));
  // A UDP goodbye for a host found by service discovery removes nothing...
  flow_->on_host_removed(host("A", "10.0.0.1", 5895, true));
  EXPECT_EQ(flow_->arr_hosts().size(), 2u);
  // ...the exact record does, and the one left becomes the current host.
  flow_->on_host_removed(host("A", "10.0.0.1", 5895, false));
  ASSERT_EQ(flow_->arr_hosts().size(), 1u);
  EXPECT_EQ(flow_->hostName(), "B");
}

TEST_F(FlowTest, ManualConnectionWaitsATenthOfASecondAndAFailureSearchesAgainIn600Seconds) {
  battery_->setCablePlugged(true);  // a search needs Wi-Fi or a cable
  env_.drain();
  flow_->connectManually("127.0.0.1", "17");
  EXPECT_EQ(flow_->hostPort(), 5895);
  EXPECT_EQ(flow_->hostName(), "Unknown");
  EXPECT_FALSE(flow_->hasConnection());
  EXPECT_TRUE(screen_->huds.empty());
  env_.advance(0.1);
  EXPECT_EQ(screen_->huds, (std::vector<std::string>{"M_CONNECT_TO 127.0.0.1"}));
  ASSERT_EQ(attempts(), 1u);
  EXPECT_EQ(attempt(0), "127.0.0.1:5895");
  connections_.last()->end(posixError(ECONNREFUSED));
  EXPECT_FALSE(flow_->hasConnection());
  EXPECT_EQ(screen_->errors.size(), 1u);  // a manual attempt shows the error
  EXPECT_FALSE(flow_->hostIP().has_value());
  int searches = screen_->discoverTrueCount();
  flow_->connectManually("", "3");  // an empty address does nothing
  env_.advance(599.0, 1.0);
  EXPECT_EQ(screen_->huds.size(), 1u);
  EXPECT_EQ(screen_->discoverTrueCount(), searches);
  env_.advance(1.5, 0.5);
  EXPECT_EQ(screen_->discoverTrueCount(), searches + 1);
}

TEST_F(FlowTest, ViewDidAppearRules) {
  // No host known: a search, which without Wi-Fi or cable ends at once.
  flow_->viewDidAppear();
  EXPECT_FALSE(flow_->hostDiscovering());
  EXPECT_EQ(screen_->discoverStates, (std::vector<bool>{false}));
  EXPECT_FALSE(flow_->isListening());
  // A host known and autoStart: connect.
  flow_->on_host_detected(host("A", "127.0.0.1", 5897));
  flow_->viewDidAppear();
  EXPECT_TRUE(flow_->hasConnection());
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

TEST_F(FlowTest, ASecondCallerReplacesTheAddressButIsNotKept) {
  auto first = acceptTcp("127.0.0.7");
  EXPECT_TRUE(flow_->hostConnected());
  auto second = acceptTcp("127.0.0.8");
  EXPECT_EQ(flow_->hostIP(), "127.0.0.8");
  EXPECT_EQ(flow_->hostPort(), 5895);
  EXPECT_EQ(first->sent.size(), 2u);  // the hello went to the first caller only
  EXPECT_TRUE(second->sent.empty());
  EXPECT_EQ(second->delegate(), nullptr);
}

// A call off the main queue is a fault of the program: the test builds stop it.
class FlowQueueCheckDeathTest : public test::FlowFixture {};

TEST_F(FlowQueueCheckDeathTest, DiscoverOffTheMainQueueAborts) {
#ifdef OXELO_QUEUE_CHECKS
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  startFlow();
  EXPECT_DEATH(std::thread([&] { flow_->discover(); }).join(), "must run on the main queue");
#else
  GTEST_SKIP() << "queue checks are compiled out of this build";
#endif
}

}  // namespace
}  // namespace oxelo
