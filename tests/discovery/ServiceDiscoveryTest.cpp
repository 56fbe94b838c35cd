#include <gtest/gtest.h>

#include "discovery/AvahiErrors.h"
#include "discovery/MainViewController.h"
#include "platform/defaults/SettingsKeys.h"
#include "tests/discovery/support/FlowFixture.h"

namespace oxelo {
namespace {

using test::FakeNetService;

// The service-discovery half of the flow against a browser the test drives, on Wi-Fi.
class ServiceDiscoveryTest : public test::FlowFixture {
 protected:
  void SetUp() override {
    startFlow(/*autoConnect=*/false, [](MainViewController::Services& s) {
      s.reachability = std::make_shared<FakeReachability>(NetworkStatus::reachableViaWiFi);
    });
    flow_->discover();
    env_.drain();
  }
  std::shared_ptr<test::FakeServiceBrowser> browser() const { return browsers_->last(); }
  std::shared_ptr<FakeNetService> found(const std::string& name, int port = 5899) {
    auto service = std::make_shared<FakeNetService>(name, port);
    browser()->find(service);
    return service;
  }
};

TEST_F(ServiceDiscoveryTest, OneBrowserSearchesTheOxeloTypeInLocalUntilTheBackground) {
  flow_->net_discover();
  ASSERT_EQ(browsers_->made.size(), 1u);
  EXPECT_EQ(browser()->stops, 1);  // stopped, then searching again
  EXPECT_EQ(browser()->searches, (std::vector<std::pair<std::string, std::string>>(
                                     2, {"_tarnvik_oxelo._tcp.", "local."})));
  lifecycle_->sendEvent(LifecycleEvent::didEnterBackground);
  env_.drain();
  EXPECT_EQ(browser()->stops, 2);
  EXPECT_TRUE(browser()->delegate.expired());
  flow_->net_discover();
  EXPECT_EQ(browsers_->made.size(), 2u);  // a new one after the background
}

TEST_F(ServiceDiscoveryTest, ResolvesAtOnceThenRetriesWithFiveSecondsUntilActivityInProgress) {
  auto service = found("Desk");
  EXPECT_EQ(service->resolves, (std::vector<double>{3.0}));
  EXPECT_EQ(flow_->servicesInResolution(), 1u);
  service->failResolve(kNetServicesTimeoutError);
  service->failResolve(kNetServicesNotFoundError);
  EXPECT_EQ(service->resolves, (std::vector<double>{3.0, 5.0, 5.0}));
  service->failResolve(kNetServicesActivityInProgress);
  EXPECT_EQ(service->resolves.size(), 3u);
  EXPECT_TRUE(flow_->arr_hosts().empty());  // an unresolved service never reaches the list
}

TEST_F(ServiceDiscoveryTest, OnlyAnIPv4FirstAddressMakesAHost) {
  const SocketAddress v4 = SocketAddress::ipv4("10.77.0.2", 5897);
  const SocketAddress v6 = test::ipv6Address("fe80::2", 5897);
  const SocketAddress cut(reinterpret_cast<const sockaddr*>(v4.data()), 8);  // under 16 bytes
  using Refused = std::vector<std::pair<std::string, std::vector<SocketAddress>>>;
  for (const auto& [name, refused] : Refused{{"A", {v6, v4}}, {"B", {}}, {"C", {cut}}}) {
    found(name, 5897)->resolveTo(refused);
    EXPECT_TRUE(flow_->arr_hosts().empty()) << name;
  }
  found("Desk", 5897)->resolveTo({v4, v6});
  EXPECT_EQ(flow_->arr_hosts(), (std::vector<HostRecord>{{"Desk", "10.77.0.2", 5897, false}}));
}

TEST_F(ServiceDiscoveryTest, HostFoundByUdpFirstStaysOneEntryAndLeavesByItsExactName) {
  flow_->on_host_detected({"Desk", "10.77.0.2", 5895, true});
  auto service = found("Desk", 5899);
  service->resolveTo({SocketAddress::ipv4("10.77.0.2", 5899)});
  ASSERT_EQ(flow_->arr_hosts().size(), 1u);
  EXPECT_EQ(flow_->arr_hosts()[0], (HostRecord{"Desk", "10.77.0.2", 5895, true}));
  // A browser that loses the service removes the entry by its name, also the
  // one UDP found; the list being empty, the flow searches again.
  int searches = screen_->discoverTrueCount();
  browser()->remove(service);
  EXPECT_TRUE(flow_->arr_hosts().empty());
  EXPECT_EQ(flow_->servicesInResolution(), 0u);
  EXPECT_EQ(screen_->discoverTrueCount(), searches + 1);
}

TEST_F(ServiceDiscoveryTest, RemovalsWithMoreComingOnlyDropEntriesTheLastOneRefreshes) {
  auto a = found("A"), b = found("B"), c = found("C");
  for (auto [service, ip] : {std::pair{a, "10.77.0.2"}, {b, "10.77.0.3"}, {c, "10.77.0.4"}})
    service->resolveTo({SocketAddress::ipv4(ip, 5899)});
  env_.advance(0.6);  // settled: three hosts
  ASSERT_EQ(flow_->arr_hosts().size(), 3u);
  int refreshes = screen_->discoveredCount;
  browser()->remove(a, /*moreComing=*/true);
  EXPECT_EQ(flow_->arr_hosts().size(), 2u);
  EXPECT_EQ(screen_->discoveredCount, refreshes);
  browser()->remove(b, /*moreComing=*/false);
  ASSERT_EQ(flow_->arr_hosts().size(), 1u);
  EXPECT_EQ(screen_->discoveredCount, refreshes + 1);
  EXPECT_EQ(flow_->hostName(), "C");  // the one left is the current host
  // A name that is not in the list changes nothing.
  browser()->remove(std::make_shared<FakeNetService>("c"));
  EXPECT_EQ(flow_->arr_hosts().size(), 1u);
}

TEST_F(ServiceDiscoveryTest, ServiceOfTheHostInUseLeavesTheListAloneWhileLive) {
  auto service = found("Desk");
  service->resolveTo({SocketAddress::ipv4("10.77.0.2", 5899)});
  flow_->showLiveView();
  ASSERT_TRUE(flow_->hasLiveScreen());
  browser()->remove(service);
  EXPECT_EQ(flow_->arr_hosts().size(), 1u);
}

TEST_F(ServiceDiscoveryTest, NewSearchStopsTheServicesOfTheLastOne) {
  auto service = found("Desk");
  flow_->net_discover();
  EXPECT_GE(service->stops, 1);
  EXPECT_EQ(flow_->servicesInResolution(), 0u);
  service->failResolve(kNetServicesTimeoutError);  // too late: no longer its delegate
  EXPECT_EQ(service->resolves.size(), 1u);
}

// 5 s after each net search (SetUp's at 0 s) the flow tries the last host, unless a
// host was detected, the search stopped or a TCP connection is being made.
using Flow = MainViewController;
struct LastHostCase {
  const char* name;
  double actAt;  // seconds after the search
  std::optional<double> attemptAt;
  void (*act)(Flow&);
};
constexpr std::optional<double> kNever;
class LastHostAttemptTest : public ServiceDiscoveryTest,
                            public testing::WithParamInterface<LastHostCase> {};

TEST_P(LastHostAttemptTest, FiveSecondsAfterTheLastSearchUnderItsThreeConditions) {
  defaults_->setString(keys::lastHostIP, "127.0.0.9");
  defaults_->setString(keys::lastHostName, "Desk");
  defaults_->setInteger(keys::lastHostPort, 5897);
  auto atLastHost = [&] {
    size_t n = 0;
    for (const auto& a : connections_.attempts) n += a.host == "127.0.0.9" && a.port == 5897;
    return n;
  };
  const auto& c = GetParam();
  env_.advance(c.actAt);
  c.act(*flow_);
  const double due = c.attemptAt.value_or(10.0);
  env_.advance(due - c.actAt - 0.1);
  EXPECT_EQ(atLastHost(), 0u) << "before " << due << " s";
  env_.advance(0.2);
  EXPECT_EQ(atLastHost(), c.attemptAt ? 1u : 0u) << "at " << due << " s";
  env_.advance(10.0);
  EXPECT_EQ(atLastHost(), c.attemptAt ? 1u : 0u) << "once";
}

INSTANTIATE_TEST_SUITE_P(
    Conditions, LastHostAttemptTest,
    testing::Values(
        LastHostCase{"NothingFound", 1, 5.0, [](Flow&) {}},
        LastHostCase{"EachSearchReschedules", 3, 8.0, [](Flow& f) { f.net_discover(); }},
        LastHostCase{"HostDetected", 1, kNever,
                     [](Flow& f) { f.handshakeDidReceiveHostInfo(nullptr, 5899, "Desk"); }},
        LastHostCase{"SearchStopped", 1, kNever, [](Flow& f) { f.stop_discover(false); }},
        LastHostCase{"ConnectionUnderWay", 1, kNever,
                     [](Flow& f) {
                       f.set_current_host(HostRecord{"Other", "127.0.0.3", 5899, true});
                       f.connectToHost();
                     }}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace oxelo
