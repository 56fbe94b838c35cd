#pragma once

#include <arpa/inet.h>

#include <memory>
#include <string>
#include <vector>

#include "discovery/ServiceBrowser.h"

namespace oxelo::test {

// A service whose resolution the test decides: it records the time-outs
// asked for, and the test calls the delegate as the system would.
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

}  // namespace oxelo::test
