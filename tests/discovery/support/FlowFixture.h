#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "discovery/LiveScreen.h"
#include "discovery/MainScreen.h"
#include "discovery/MainViewController.h"
#include "discovery/ServiceBrowser.h"
#include "platform/defaults/UserDefaults.h"
#include "tests/support/FakeBatteryMonitor.h"
#include "tests/support/FakeCarrier.h"
#include "tests/support/FakeLifecycle.h"
#include "tests/support/FakeReachability.h"
#include "tests/support/TestSupport.h"

namespace oxelo::test {

// A service whose resolution the test decides; records the time-outs asked for.
class FakeNetService : public NetService {
 public:
  explicit FakeNetService(std::string name, int port = 5895)
      : name_(std::move(name)), port_(port) {}
  std::string name() const override { return name_; }
  std::string type() const override { return kOxeloServiceType; }
  int port() const override { return port_; }
  std::vector<SocketAddress> addresses() const override { return resolved; }
  void setDelegate(std::weak_ptr<ServiceBrowserDelegate> d) override { delegate = std::move(d); }
  void resolveWithTimeout(double seconds) override { resolves.push_back(seconds); }
  void stop() override { ++stops; }

  void resolveTo(std::vector<SocketAddress> list) {
    resolved = std::move(list);
    if (auto d = delegate.lock()) d->netServiceDidResolveAddress(this);
  }
  void failResolve(int code) {
    if (auto d = delegate.lock()) d->netServiceDidNotResolve(this, code);
  }

  std::vector<SocketAddress> resolved;
  std::weak_ptr<ServiceBrowserDelegate> delegate;
  std::vector<double> resolves;
  int stops = 0;

 private:
  std::string name_;
  int port_;
};

class FakeServiceBrowser : public ServiceBrowser {
 public:
  void setDelegate(std::weak_ptr<ServiceBrowserDelegate> d) override { delegate = std::move(d); }
  void searchForServicesOfTypeInDomain(const std::string& type,
                                       const std::string& domain) override {
    searches.emplace_back(type, domain);
  }
  void stop() override { ++stops; }

  void find(const std::shared_ptr<FakeNetService>& service, bool moreComing = false) {
    if (auto d = delegate.lock()) d->netServiceBrowserDidFindService(this, service, moreComing);
  }
  void remove(const std::shared_ptr<FakeNetService>& service, bool moreComing = false) {
    if (auto d = delegate.lock()) d->netServiceBrowserDidRemoveService(this, service, moreComing);
  }

  std::weak_ptr<ServiceBrowserDelegate> delegate;
  std::vector<std::pair<std::string, std::string>> searches;
  int stops = 0;
};

class FakeBrowserFactory : public ServiceBrowserFactory {
 public:
  std::shared_ptr<ServiceBrowser> makeBrowser() override {
    made.push_back(std::make_shared<FakeServiceBrowser>());
    return made.back();
  }
  std::shared_ptr<FakeServiceBrowser> last() const { return made.empty() ? nullptr : made.back(); }
  std::vector<std::shared_ptr<FakeServiceBrowser>> made;
};

// A raw sockaddr_in6 for `text` (e.g. "fe80::1").
inline SocketAddress ipv6Address(const std::string& text, uint16_t port) {
  sockaddr_in6 a{};
  a.sin6_family = AF_INET6;
  a.sin6_port = htons(port);
  inet_pton(AF_INET6, text.c_str(), &a.sin6_addr);
  return SocketAddress(reinterpret_cast<const sockaddr*>(&a), sizeof a);
}

// Records what the connection flow shows.
class FakeMainScreen : public MainScreen {
 public:
  void update_ui_for_discover(bool discovering) override { discoverStates.push_back(discovering); }
  void update_ui_for_discovered() override { ++discoveredCount; }
  void showInfo(const std::string&) override {}
  void showError(const std::string& text) override { errors.push_back(text); }
  void hudShowWithTitleAndIcon(const std::string& title, const std::string&) override {
    huds.push_back(title);
  }
  void hudHide(double) override {}
  void chooseHost(const std::vector<HostRecord>& hosts,
                  std::function<void(std::optional<size_t>)> choice) override {
    choices.emplace_back(hosts, std::move(choice));
  }
  bool isViewInWindow() const override { return true; }

  int discoverTrueCount() const {
    return int(std::count(discoverStates.begin(), discoverStates.end(), true));
  }

  std::vector<bool> discoverStates;
  int discoveredCount = 0;
  std::vector<std::string> errors, huds;
  std::vector<std::pair<std::vector<HostRecord>, std::function<void(std::optional<size_t>)>>>
      choices;
};

class FakeLiveScreen : public LiveViewController {};

// Opens a fake live screen which, like the real one, asks for its live view at once.
class FakePresenter : public LiveScreenPresenter, public LiveViewChannelTarget {
 public:
  std::shared_ptr<LiveViewController> presentLiveScreen(
      std::shared_ptr<LiveScreenOwner> owner) override {
    ++presented;
    if (prepareOnPresent) owner->prepareLiveView(*this);
    return std::make_shared<FakeLiveScreen>();
  }
  void setHostIP(const std::string& ip) override { hostIP = ip; }
  void setHostPort(long long port) override { hostPort = port; }
  void setCarrier(std::shared_ptr<Carrier> c) override { carrier = std::move(c); }

  bool prepareOnPresent = false;
  int presented = 0;
  std::string hostIP;
  long long hostPort = 0;
  std::shared_ptr<Carrier> carrier;
};

// Stands in for TcpCarrier::connect: each attempt gets an unconnected fake carrier.
class FakeConnector {
 public:
  struct Attempt {
    std::string host;
    uint16_t port = 0;
    double timeout = 0;
    std::shared_ptr<FakeCarrier> carrier;
  };
  MainViewController::Connector connector() {
    return [this](const std::string& host, uint16_t port, double timeout,
                  std::weak_ptr<CarrierDelegate> delegate,
                  OptionalError&) -> std::shared_ptr<Carrier> {
      auto carrier = std::make_shared<FakeCarrier>(Carrier::Kind::tcp, /*connected=*/false);
      carrier->setDelegate(std::move(delegate));
      attempts.push_back({host, port, timeout, carrier});
      return carrier;
    };
  }
  std::shared_ptr<FakeCarrier> last() const { return attempts.at(attempts.size() - 1).carrier; }
  std::vector<Attempt> attempts;
};

// The connection flow with every platform service faked: no Wi-Fi, no cable, listeners on
// free loopback ports, probes to a closed loopback port, the test's browser and carriers.
class FlowFixture : public testing::Test {
 protected:
  using Adjust = std::function<void(MainViewController::Services&)>;

  // Builds the flow with `autoConnect` as the default and `adjust`ed services; viewDidLoad.
  void startFlow(bool autoConnect = true, const Adjust& adjust = {});
  void TearDown() override;

  // A USB peer arriving on the listener, as a fake carrier.
  std::shared_ptr<FakeCarrier> acceptUsbPeer();
  // A host calling on 5896 from `peer`, as a fake carrier.
  std::shared_ptr<FakeCarrier> acceptTcp(const std::string& peer);

  ManualMain env_;
  TempDir dir_;
  LogCapture log_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<FakeMainScreen> screen_ = std::make_shared<FakeMainScreen>();
  std::shared_ptr<FakePresenter> presenter_ = std::make_shared<FakePresenter>();
  std::shared_ptr<FakeReachability> reachability_ = std::make_shared<FakeReachability>();
  std::shared_ptr<FakeBatteryMonitor> battery_ = std::make_shared<FakeBatteryMonitor>();
  std::shared_ptr<FakeLifecycle> lifecycle_ = std::make_shared<FakeLifecycle>();
  std::shared_ptr<FakeBrowserFactory> browsers_ = std::make_shared<FakeBrowserFactory>();
  FakeConnector connections_;
  std::shared_ptr<MainViewController> flow_;
};

}  // namespace oxelo::test
