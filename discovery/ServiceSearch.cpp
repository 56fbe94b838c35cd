#include "discovery/ServiceSearch.h"

#include <sys/socket.h>

#include "platform/dispatch/QueueCheck.h"
#include "platform/log/Log.h"

namespace oxelo {

std::shared_ptr<ServiceSearch> ServiceSearch::create(
    std::shared_ptr<ServiceBrowserFactory> browsers,
    std::weak_ptr<ServiceSearchDelegate> delegate) {
  return std::shared_ptr<ServiceSearch>(
      new ServiceSearch(std::move(browsers), std::move(delegate)));
}

ServiceSearch::~ServiceSearch() {
  dropServices();
  if (browser_) browser_->setDelegate({});
}

void ServiceSearch::start() {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!browser_) {
    if (!browsers_) return;
    browser_ = browsers_->makeBrowser();
    if (!browser_) return;
    browser_->setDelegate(weak_from_this());
  } else {
    browser_->stop();
  }
  browser_->searchForServicesOfTypeInDomain(kOxeloServiceType, kOxeloServiceDomain);
}

void ServiceSearch::stopServices() {
  for (auto& service : services_) service->stop();
}

void ServiceSearch::dropServices() {
  for (auto& service : services_) {
    service->setDelegate({});
    service->stop();
  }
  services_.clear();
}

void ServiceSearch::stopBrowser() {
  if (!browser_) return;
  browser_->setDelegate({});
  browser_->stop();
  browser_.reset();
}

void ServiceSearch::netServiceBrowserDidFindService(ServiceBrowser*,
                                                    std::shared_ptr<NetService> service, bool) {
  service->setDelegate(weak_from_this());
  service->resolveWithTimeout(kFirstResolveTimeout);
  services_.push_back(std::move(service));
}

void ServiceSearch::netServiceDidResolveAddress(NetService* service) {
  auto addresses = service->addresses();
  if (addresses.empty()) return;
  const auto& first = addresses.front();
  // Only an IPv4 first address counts. The family is the sockaddr's own
  // field (a 16-bit value at offset 0 here, with no length byte in front).
  if (first.size() < 16 || first.family() != AF_INET) return;
  const uint8_t* a = first.data() + 4;
  HostRecord record;
  record.name = service->name();
  record.ip = std::to_string(a[0]) + "." + std::to_string(a[1]) + "." + std::to_string(a[2]) + "." +
              std::to_string(a[3]);
  record.port = service->port();
  record.udp = false;
  if (auto delegate = delegate_.lock()) delegate->serviceSearchDidResolveHost(record);
}

void ServiceSearch::netServiceDidNotResolve(NetService* service, int errorCode) {
  oxlog("MAIN - netService didNotResolve: {} ({})", service->name(), errorCode);
  if (errorCode != kNetServicesActivityInProgress)
    service->resolveWithTimeout(kRetryResolveTimeout);
}

void ServiceSearch::netServiceBrowserDidRemoveService(ServiceBrowser*,
                                                      std::shared_ptr<NetService> service,
                                                      bool moreComing) {
  std::string name = service->name();
  std::erase_if(services_, [&](const auto& s) { return s == service || s->name() == name; });
  if (auto delegate = delegate_.lock()) delegate->serviceSearchDidLoseService(name, moreComing);
}

}  // namespace oxelo
