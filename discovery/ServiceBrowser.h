#pragma once

#include <memory>
#include <string>
#include <vector>

#include "channels/SocketAddress.h"

namespace oxelo {

class ServiceBrowser;
class NetService;

// The service type and domain that hosts announce themselves under.
inline constexpr const char* kOxeloServiceType = "_tarnvik_oxelo._tcp.";
inline constexpr const char* kOxeloServiceDomain = "local.";
// The resolve failure that ends the retries: another resolve of the service is
// already under way.
inline constexpr int kNetServicesActivityInProgress = -72003;

// Events of a service browser and of the services it found. Main queue.
class ServiceBrowserDelegate {
 public:
  virtual ~ServiceBrowserDelegate() = default;
  virtual void netServiceBrowserDidFindService(ServiceBrowser* /*browser*/,
                                               std::shared_ptr<NetService> /*service*/,
                                               bool /*moreComing*/) {}
  virtual void netServiceBrowserDidRemoveService(ServiceBrowser* /*browser*/,
                                                 std::shared_ptr<NetService> /*service*/,
                                                 bool /*moreComing*/) {}
  virtual void netServiceBrowserDidNotSearch(ServiceBrowser* /*browser*/, int /*errorCode*/) {}
  virtual void netServiceDidResolveAddress(NetService* /*service*/) {}
  virtual void netServiceDidNotResolve(NetService* /*service*/, int /*errorCode*/) {}
};

// One announced service. Its delegate hears the outcome of resolving it on
// the main queue. Main queue.
class NetService {
 public:
  virtual ~NetService() = default;
  virtual std::string name() const = 0;
  virtual std::string type() const = 0;
  virtual int port() const = 0;
  // The resolved addresses in the order the system gave them, as raw socket
  // addresses (sockaddr_in or sockaddr_in6); empty before resolving.
  virtual std::vector<SocketAddress> addresses() const = 0;
  virtual void setDelegate(std::weak_ptr<ServiceBrowserDelegate> delegate) = 0;
  virtual void resolveWithTimeout(double seconds) = 0;
  virtual void stop() = 0;
};

// Browses the local network for announced services. Main queue.
class ServiceBrowser {
 public:
  virtual ~ServiceBrowser() = default;
  virtual void setDelegate(std::weak_ptr<ServiceBrowserDelegate> delegate) = 0;
  virtual void searchForServicesOfTypeInDomain(const std::string& type,
                                               const std::string& domain) = 0;
  virtual void stop() = 0;
};

// Makes the browser of the search; the Avahi one in the program, fakes in
// tests.
class ServiceBrowserFactory {
 public:
  virtual ~ServiceBrowserFactory() = default;
  virtual std::shared_ptr<ServiceBrowser> makeBrowser() = 0;
};

}  // namespace oxelo
