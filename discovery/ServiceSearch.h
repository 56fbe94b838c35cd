#pragma once

#include <memory>
#include <string>
#include <vector>

#include "discovery/HostRecord.h"
#include "discovery/ServiceBrowser.h"

namespace oxelo {

// What the service search finds. Main queue; both optional.
class ServiceSearchDelegate {
 public:
  virtual ~ServiceSearchDelegate() = default;
  // A service resolved to an IPv4 first address.
  virtual void serviceSearchDidResolveHost(const HostRecord& /*record*/) {}
  // The browser lost the service of this name; more removals follow when
  // `moreComing`.
  virtual void serviceSearchDidLoseService(const std::string& /*name*/, bool /*moreComing*/) {}
};

// DNS-SD: one browser for hosts that announce "_tarnvik_oxelo._tcp." in
// "local.", kept over every search until the program goes to the background,
// and the services it found while they resolve (3 s the first time, 5 s on
// every retry until the answer is "activity in progress"). Main queue, all of
// it. Held by shared pointer (create()); browser and services hold it weakly.
class ServiceSearch final : public ServiceBrowserDelegate,
                            public std::enable_shared_from_this<ServiceSearch> {
 public:
  static constexpr double kFirstResolveTimeout = 3.0;
  static constexpr double kRetryResolveTimeout = 5.0;

  // Without a factory nothing is ever searched.
  static std::shared_ptr<ServiceSearch> create(std::shared_ptr<ServiceBrowserFactory> browsers,
                                               std::weak_ptr<ServiceSearchDelegate> delegate);
  ~ServiceSearch() override;

  // Searches anew with the browser there is, or with a new one.
  void start();
  // Sends stop to every service found (they stay in the list).
  void stopServices();
  // Lets go of every service found; their late answers no longer arrive.
  void dropServices();
  // Stops and drops the browser; the next start() makes a new one.
  void stopBrowser();
  size_t servicesInResolution() const { return services_.size(); }

  // ServiceBrowserDelegate.
  void netServiceBrowserDidFindService(ServiceBrowser* browser, std::shared_ptr<NetService> service,
                                       bool moreComing) override;
  void netServiceBrowserDidRemoveService(ServiceBrowser* browser,
                                         std::shared_ptr<NetService> service,
                                         bool moreComing) override;
  void netServiceDidResolveAddress(NetService* service) override;
  void netServiceDidNotResolve(NetService* service, int errorCode) override;

 private:
  ServiceSearch(std::shared_ptr<ServiceBrowserFactory> browsers,
                std::weak_ptr<ServiceSearchDelegate> delegate)
      : browsers_(std::move(browsers)), delegate_(std::move(delegate)) {}

  const std::shared_ptr<ServiceBrowserFactory> browsers_;
  std::weak_ptr<ServiceSearchDelegate> delegate_;
  std::shared_ptr<ServiceBrowser> browser_;
  std::vector<std::shared_ptr<NetService>> services_;
};

}  // namespace oxelo
