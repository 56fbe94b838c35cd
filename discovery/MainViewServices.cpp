// Service discovery: hosts that announce "_tarnvik_oxelo._tcp." in "local.".
#include <sys/socket.h>

#include <algorithm>

#include "discovery/MainViewController.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {
constexpr double kFirstResolveTimeout = 3.0;
constexpr double kRetryResolveTimeout = 5.0;
}  // namespace

void MainViewController::startServiceSearch() {
  if (!service_browser_) {
    if (!services_.browsers) return;
    service_browser_ = services_.browsers->makeBrowser();
    if (!service_browser_) return;
    service_browser_->setDelegate(weak_from_this());
  } else {
    service_browser_->stop();
  }
  service_browser_->searchForServicesOfTypeInDomain(kOxeloServiceType, kOxeloServiceDomain);
}

void MainViewController::dropServices() {
  for (auto& service : arr_services_) {
    service->setDelegate({});
    service->stop();
  }
  arr_services_.clear();
}

void MainViewController::netServiceBrowserDidFindService(ServiceBrowser*,
                                                         std::shared_ptr<NetService> service,
                                                         bool) {
  service->setDelegate(weak_from_this());
  service->resolveWithTimeout(kFirstResolveTimeout);
  arr_services_.push_back(std::move(service));
}

void MainViewController::netServiceDidResolveAddress(NetService* service) {
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
  on_host_detected(record);
}

void MainViewController::netServiceDidNotResolve(NetService* service, int errorCode) {
  oxlog("MAIN - netService didNotResolve: {} ({})", service->name(), errorCode);
  if (errorCode != kNetServicesActivityInProgress)
    service->resolveWithTimeout(kRetryResolveTimeout);
}

void MainViewController::netServiceBrowserDidRemoveService(ServiceBrowser*,
                                                           std::shared_ptr<NetService> service,
                                                           bool moreComing) {
  std::string name = service->name();
  std::erase_if(arr_services_, [&](const auto& s) { return s == service || s->name() == name; });
  if (liveVC_ && hostName_ == name) return;
  auto it = std::find_if(arr_hosts_.begin(), arr_hosts_.end(),
                         [&](const HostRecord& h) { return h.name == name; });
  if (it == arr_hosts_.end()) return;
  if (moreComing) {
    arr_hosts_.erase(it);
    return;
  }
  HostRecord record = *it;
  on_host_removed(record);
}

}  // namespace oxelo
