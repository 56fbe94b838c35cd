#include <avahi-common/error.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>

#include "discovery/AvahiBrowser.h"
#include "discovery/AvahiErrors.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

// An Avahi backend whose events the test sends, as the poll thread would.
class FakeAvahi final : public AvahiBackend {
 public:
  struct Op final : AvahiOperation {
    Op(FakeAvahi& owner, int id) : owner(owner), id(id) {}
    ~Op() override { owner.ended.push_back(id); }
    FakeAvahi& owner;
    int id;
  };
  struct Resolve {
    ServiceInstance instance;
    std::string name, type, domain;
    std::function<void(ResolveResult)> onResult;
    int id;
  };

  std::unique_ptr<AvahiOperation> browse(const std::string& type, const std::string& domain,
                                         std::function<void(BrowseEvent)> onEvent, int&) override {
    browses.emplace_back(type, domain);
    this->onEvent = std::move(onEvent);
    browseId = ++nextId;
    return std::make_unique<Op>(*this, browseId);
  }
  std::unique_ptr<AvahiOperation> resolve(const ServiceInstance& instance, const std::string& name,
                                          const std::string& type, const std::string& domain,
                                          std::function<void(ResolveResult)> onResult,
                                          int& error) override {
    if (resolveError) {
      error = resolveError;
      return nullptr;
    }
    resolves.push_back({instance, name, type, domain, std::move(onResult), ++nextId});
    return std::make_unique<Op>(*this, nextId);
  }

  void send(BrowseEvent::Kind kind, const std::string& name, ServiceInstance instance = {2, 0},
            int error = 0) {
    onEvent({kind, instance, name, "_tarnvik_oxelo._tcp", "local", error});
  }
  bool isEnded(int id) const { return std::find(ended.begin(), ended.end(), id) != ended.end(); }

  int resolveError = 0;
  std::vector<std::pair<std::string, std::string>> browses;
  std::function<void(BrowseEvent)> onEvent;
  int browseId = 0, nextId = 0;
  std::vector<Resolve> resolves;
  std::vector<int> ended;
};

// Records what the browser and its services report.
class Recorder : public ServiceBrowserDelegate {
 public:
  // "found NAME", " +" while more are coming; codes after the name.
  void netServiceBrowserDidFindService(ServiceBrowser*, std::shared_ptr<NetService> s,
                                       bool more) override {
    services[s->name()] = s;
    events.push_back("found " + s->name() + (more ? " +" : ""));
  }
  void netServiceBrowserDidRemoveService(ServiceBrowser*, std::shared_ptr<NetService> s,
                                         bool more) override {
    EXPECT_EQ(services[s->name()], s) << "removed as another object than it was found";
    events.push_back("removed " + s->name() + (more ? " +" : ""));
  }
  void netServiceBrowserDidNotSearch(ServiceBrowser*, int code) override {
    events.push_back("didNotSearch " + std::to_string(code));
  }
  void netServiceDidResolveAddress(NetService* s) override {
    events.push_back("resolved " + s->name());
  }
  void netServiceDidNotResolve(NetService* s, int code) override {
    events.push_back("didNotResolve " + s->name() + " " + std::to_string(code));
  }
  std::vector<std::string> events;
  std::map<std::string, std::shared_ptr<NetService>> services;
};

using Events = std::vector<std::string>;
using Kind = BrowseEvent::Kind;
constexpr ServiceInstance kEthIPv4{2, kAvahiProtocolIPv4}, kEthIPv6{2, kAvahiProtocolIPv6},
    kWlanIPv4{3, kAvahiProtocolIPv4};

class AvahiBrowserTest : public testing::Test {
 protected:
  void SetUp() override {
    browser_ = std::make_shared<AvahiBrowser>([this](int& error) -> std::shared_ptr<AvahiBackend> {
      ++opens_;
      if (openError_) {
        error = openError_;
        return nullptr;
      }
      backend_ = std::make_shared<FakeAvahi>();
      return backend_;
    });
    browser_->setDelegate(recorder_);
  }
  void search() { browser_->searchForServicesOfTypeInDomain("_tarnvik_oxelo._tcp.", "local."); }
  std::shared_ptr<NetService> service(const std::string& name) { return recorder_->services[name]; }

  test::ManualMain env_;
  test::LogCapture log_;
  std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
  std::shared_ptr<FakeAvahi> backend_;
  std::shared_ptr<AvahiBrowser> browser_;
  int opens_ = 0;
  int openError_ = 0;
};

TEST_F(AvahiBrowserTest, ServiceSeenOnSeveralPlacesIsFoundWithTheFirstAndRemovedWithTheLast) {
  search();
  backend_->send(Kind::found, "Desk", kEthIPv4);
  backend_->send(Kind::found, "Desk", kEthIPv6);
  backend_->send(Kind::allForNow, "");
  env_.drain();
  backend_->send(Kind::found, "Desk", kWlanIPv4);
  backend_->send(Kind::removed, "Desk", kEthIPv6);
  backend_->send(Kind::removed, "Desk", kEthIPv4);
  env_.drain();
  EXPECT_EQ(recorder_->events, (Events{"found Desk"}));
  backend_->send(Kind::removed, "Desk", kWlanIPv4);
  env_.drain();
  EXPECT_EQ(recorder_->events, (Events{"found Desk", "removed Desk"}));
}

// Avahi is asked without the trailing dots; the services carry the Bonjour type.
TEST_F(AvahiBrowserTest, EventsHandedOverTogetherCarryMoreComingButTheLast) {
  search();
  ASSERT_TRUE(backend_);
  EXPECT_EQ(backend_->browses,
            (std::vector<std::pair<std::string, std::string>>{{"_tarnvik_oxelo._tcp", "local"}}));
  backend_->send(Kind::found, "A");
  backend_->send(Kind::found, "B");
  backend_->send(Kind::allForNow, "");
  env_.drain();
  EXPECT_EQ(service("A")->type(), "_tarnvik_oxelo._tcp.");
  backend_->send(Kind::removed, "A");
  backend_->send(Kind::removed, "Unknown");
  backend_->send(Kind::removed, "B");
  env_.drain();
  EXPECT_EQ(recorder_->events, (Events{"found A +", "found B", "removed A +", "removed B"}));
}

TEST_F(AvahiBrowserTest, StopEndsTheBrowseAndDropsWhatWasOnItsWay) {
  search();
  const int first = backend_->browseId;
  auto stale = backend_->onEvent;
  stale({Kind::found, kEthIPv4, "Late", "_tarnvik_oxelo._tcp", "local", 0});
  browser_->stop();
  EXPECT_TRUE(backend_->isEnded(first));
  env_.drain();
  EXPECT_TRUE(recorder_->events.empty());
  // A new search reports every service anew, on the same connection.
  search();
  backend_->send(Kind::found, "Late");
  env_.drain();
  EXPECT_EQ(recorder_->events, (Events{"found Late"}));
  EXPECT_EQ(opens_, 1);
}

TEST_F(AvahiBrowserTest, NoDaemonOrItsLossFailsTheSearchLoggedOnceAndTheNextSearchReconnects) {
  openError_ = AVAHI_ERR_NO_DAEMON;
  search();
  env_.drain();
  search();
  env_.drain();
  EXPECT_EQ(opens_, 2);
  EXPECT_EQ(recorder_->events, (Events{"didNotSearch -72003", "didNotSearch -72003"}));
  EXPECT_EQ(log_.count("DNS-SD - "), 1u);
  EXPECT_TRUE(log_.contains("Daemon not running"));
  openError_ = 0;  // once it is there, browsing works
  search();
  ASSERT_TRUE(backend_);
  EXPECT_EQ(backend_->browses.size(), 1u);
  backend_->send(Kind::found, "Desk");  // goes with the failure that follows
  backend_->send(Kind::failed, "", {}, AVAHI_ERR_DISCONNECTED);
  env_.drain();
  EXPECT_EQ(recorder_->events.size(), 3u);
  EXPECT_EQ(recorder_->events.back(), "didNotSearch -72003");
  EXPECT_EQ(log_.count("DNS-SD - "), 2u);
  search();
  EXPECT_EQ(opens_, 4);
}

// Resolving, with the service found on IPv6 first and on IPv4 after.
class AvahiNetServiceTest : public AvahiBrowserTest {
 protected:
  void SetUp() override {
    AvahiBrowserTest::SetUp();
    search();
    backend_->send(Kind::found, "Desk", kEthIPv6);
    backend_->send(Kind::found, "Desk", kWlanIPv4);
    env_.drain();
    desk_ = service("Desk");
    ASSERT_TRUE(desk_);
    desk_->setDelegate(recorder_);
    recorder_->events.clear();
  }
  std::shared_ptr<NetService> desk_;
};

// A second resolve while one runs is refused as activity in progress.
TEST_F(AvahiNetServiceTest, ResolvesThePlaceSeenOverIPv4AndKeepsItsAddressAndPort) {
  desk_->resolveWithTimeout(3.0);
  desk_->resolveWithTimeout(3.0);
  ASSERT_EQ(backend_->resolves.size(), 1u);
  const auto& r = backend_->resolves[0];
  EXPECT_EQ(r.instance, kWlanIPv4);
  EXPECT_EQ(r.name + " " + r.type + " " + r.domain, "Desk _tarnvik_oxelo._tcp local");
  r.onResult({0, SocketAddress::ipv4("10.77.0.2", 5899), 5899});
  r.onResult({0, SocketAddress::ipv4("10.77.0.9", 5899), 5899});  // a later one is not used
  env_.drain();
  EXPECT_EQ(recorder_->events, (Events{"didNotResolve Desk -72003", "resolved Desk"}));
  EXPECT_EQ(desk_->addresses(), std::vector<SocketAddress>{SocketAddress::ipv4("10.77.0.2", 5899)});
  EXPECT_EQ(desk_->port(), 5899);
  EXPECT_TRUE(backend_->isEnded(r.id));
}

TEST_F(AvahiNetServiceTest, TimesOutOnTheMainQueueClock) {
  desk_->resolveWithTimeout(3.0);
  env_.advance(2.9);
  EXPECT_TRUE(recorder_->events.empty());
  env_.advance(0.1);
  EXPECT_EQ(recorder_->events, (Events{"didNotResolve Desk -72007"}));
  EXPECT_TRUE(backend_->isEnded(backend_->resolves[0].id));
  // A result after the time-out is dropped; the next resolve has its own.
  backend_->resolves[0].onResult({0, SocketAddress::ipv4("10.77.0.2", 5899), 5899});
  desk_->resolveWithTimeout(5.0);
  env_.advance(4.9);
  EXPECT_EQ(recorder_->events.size(), 1u);
  EXPECT_TRUE(desk_->addresses().empty());
  env_.advance(0.1);
  EXPECT_EQ(recorder_->events.size(), 2u);
}

TEST_F(AvahiNetServiceTest, FailuresArriveAsNetServicesCodesAndStopEndsTheResolve) {
  desk_->resolveWithTimeout(3.0);
  backend_->resolves[0].onResult({AVAHI_ERR_TIMEOUT, {}, 0});
  env_.drain();
  backend_->resolveError = AVAHI_ERR_DISCONNECTED;
  desk_->resolveWithTimeout(5.0);
  EXPECT_TRUE(recorder_->events.size() == 1u) << "a failure to start is posted, not called";
  env_.drain();
  EXPECT_EQ(recorder_->events, (Events{"didNotResolve Desk -72007", "didNotResolve Desk -72003"}));
  backend_->resolveError = 0;
  desk_->resolveWithTimeout(3.0);
  desk_->stop();
  EXPECT_TRUE(backend_->isEnded(backend_->resolves.back().id));
  env_.advance(3.5);
  EXPECT_EQ(recorder_->events.size(), 2u);
}

// The codes the browser and resolve tests above do not reach.
TEST(AvahiErrorCodeTest, MapsToTheNetServicesCode) {
  const std::pair<int, int> codes[] = {{AVAHI_ERR_BAD_STATE, -72003},  // ends retries
                                       {AVAHI_ERR_NOT_FOUND, -72002},
                                       {AVAHI_ERR_COLLISION, -72001},
                                       {AVAHI_ERR_INVALID_SERVICE_TYPE, -72004},
                                       {AVAHI_ERR_DBUS_ERROR, -72000}};  // keeps retrying
  for (auto [avahi, netServices] : codes)
    EXPECT_EQ(netServicesErrorForAvahi(avahi), netServices) << avahi;
}

// The real client library, the system bus pointed at a socket that does not exist.
TEST(AvahiWithoutDaemonTest, SearchFailsWithOneLogLine) {
  test::ManualMain env;
  test::TempDir dir;
  test::LogCapture log;
  const char* old = getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::optional<std::string> saved = old ? std::optional<std::string>(old) : std::nullopt;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + (dir.path() / "no-bus").string()).c_str(), 1);
  auto recorder = std::make_shared<Recorder>();
  auto browser = AvahiBrowserFactory().makeBrowser();
  browser->setDelegate(recorder);
  browser->searchForServicesOfTypeInDomain(kOxeloServiceType, kOxeloServiceDomain);
  browser->searchForServicesOfTypeInDomain(kOxeloServiceType, kOxeloServiceDomain);
  env.drain();
  saved ? setenv("DBUS_SYSTEM_BUS_ADDRESS", saved->c_str(), 1)
        : unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  ASSERT_EQ(recorder->events.size(), 2u);
  EXPECT_EQ(recorder->events[0].substr(0, 13), "didNotSearch ");
  EXPECT_EQ(log.count("DNS-SD - no search for _tarnvik_oxelo._tcp. in local.: "), 1u)
      << (log.lines().empty() ? std::string("(no log)") : log.lines().front());
}

}  // namespace
}  // namespace oxelo
