#include "discovery/AvahiNetService.h"

#include <algorithm>

#include "discovery/AvahiErrors.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"

namespace oxelo {

AvahiNetService::AvahiNetService(std::shared_ptr<AvahiBackend> backend, std::string name,
                                 std::string type, std::string domain)
    : backend_(std::move(backend)),
      name_(std::move(name)),
      type_(std::move(type)),
      domain_(std::move(domain)) {}

AvahiNetService::~AvahiNetService() { endResolve(); }

void AvahiNetService::setDelegate(std::weak_ptr<ServiceBrowserDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void AvahiNetService::addInstance(const ServiceInstance& instance) {
  if (std::find(instances_.begin(), instances_.end(), instance) == instances_.end()) {
    instances_.push_back(instance);
  }
}

void AvahiNetService::removeInstance(const ServiceInstance& instance) {
  std::erase(instances_, instance);
}

void AvahiNetService::resolveWithTimeout(double seconds) {
  if (isResolving()) {
    postDidNotResolve(kNetServicesActivityInProgress);
    return;
  }
  if (instances_.empty()) {
    postDidNotResolve(kNetServicesNotFoundError);
    return;
  }
  auto ipv4 = std::find_if(instances_.begin(), instances_.end(), [](const ServiceInstance& i) {
    return i.protocol == kAvahiProtocolIPv4;
  });
  const ServiceInstance instance = ipv4 != instances_.end() ? *ipv4 : instances_.front();
  std::weak_ptr<AvahiNetService> weak = weak_from_this();
  auto inbox = MainQueueInbox<ResolveResult>::create([weak](std::vector<ResolveResult> results) {
    if (auto self = weak.lock()) self->onResult(results.front());
  });
  int error = 0;
  resolve_ = backend_->resolve(
      instance, name_, type_, domain_,
      [inbox](ResolveResult result) { inbox->push(std::move(result)); }, error);
  if (!resolve_) {
    postDidNotResolve(netServicesErrorForAvahi(error));
    return;
  }
  inbox_ = std::move(inbox);
  timeout_ = postAfterWeak(*MainQueue::get(), seconds, weak,
                           [](AvahiNetService& self) { self.onTimeout(); });
}

void AvahiNetService::stop() { endResolve(); }

void AvahiNetService::endResolve() {
  timeout_.cancel();
  if (inbox_) inbox_->close();
  inbox_.reset();
  resolve_.reset();
}

void AvahiNetService::onResult(const ResolveResult& result) {
  if (!isResolving()) return;
  endResolve();
  if (result.error != 0) {
    if (auto d = delegate_.lock())
      d->netServiceDidNotResolve(this, netServicesErrorForAvahi(result.error));
    return;
  }
  addresses_ = {result.address};
  port_ = result.port;
  if (auto d = delegate_.lock()) d->netServiceDidResolveAddress(this);
}

void AvahiNetService::onTimeout() {
  if (!isResolving()) return;
  endResolve();
  if (auto d = delegate_.lock()) d->netServiceDidNotResolve(this, kNetServicesTimeoutError);
}

void AvahiNetService::postDidNotResolve(int errorCode) {
  postWeak(*MainQueue::get(), weak_from_this(), [errorCode](AvahiNetService& self) {
    if (auto d = self.delegate_.lock()) d->netServiceDidNotResolve(&self, errorCode);
  });
}

}  // namespace oxelo
