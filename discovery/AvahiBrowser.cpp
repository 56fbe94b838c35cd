#include "discovery/AvahiBrowser.h"

#include "discovery/AvahiClientBackend.h"
#include "discovery/AvahiErrors.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/log/Log.h"

namespace oxelo {

namespace {

// Avahi writes types and domains without the trailing dot of the Bonjour
// spelling.
std::string withoutTrailingDot(const std::string& text) {
  if (!text.empty() && text.back() == '.') return text.substr(0, text.size() - 1);
  return text;
}

}  // namespace

AvahiBrowser::AvahiBrowser(AvahiBackendFactory openBackend)
    : openBackend_(std::move(openBackend)) {}

AvahiBrowser::~AvahiBrowser() { stop(); }

void AvahiBrowser::setDelegate(std::weak_ptr<ServiceBrowserDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void AvahiBrowser::searchForServicesOfTypeInDomain(const std::string& type,
                                                   const std::string& domain) {
  stop();
  type_ = type;
  domain_ = domain;
  int error = 0;
  if (!backend_) backend_ = openBackend_(error);
  if (!backend_) {
    searchFailed(error);
    return;
  }
  std::weak_ptr<AvahiBrowser> weak = weak_from_this();
  auto inbox = MainQueueInbox<BrowseEvent>::create([weak](std::vector<BrowseEvent> events) {
    if (auto self = weak.lock()) self->deliver(std::move(events));
  });
  browse_ = backend_->browse(
      withoutTrailingDot(type), withoutTrailingDot(domain),
      [inbox](BrowseEvent event) { inbox->push(std::move(event)); }, error);
  if (!browse_) {
    searchFailed(error);
    return;
  }
  inbox_ = std::move(inbox);
}

void AvahiBrowser::stop() {
  if (inbox_) inbox_->close();
  inbox_.reset();
  browse_.reset();
  services_.clear();
}

void AvahiBrowser::searchFailed(int avahiError) {
  // A broken connection is not used again: the next search makes a new one.
  stop();
  backend_.reset();
  if (lastFailure_ != avahiError) {
    oxlog("DNS-SD - no search for {} in {}: {}", type_, domain_, avahiErrorText(avahiError));
  }
  lastFailure_ = avahiError;
  postWeak(*MainQueue::get(), weak_from_this(),
           [code = netServicesErrorForAvahi(avahiError)](AvahiBrowser& self) {
             if (auto d = self.delegate_.lock()) d->netServiceBrowserDidNotSearch(&self, code);
           });
}

void AvahiBrowser::deliver(std::vector<BrowseEvent> events) {
  // First the bookkeeping of the whole batch, so that moreComing can be told.
  struct Report {
    bool found;
    std::shared_ptr<AvahiNetService> service;
  };
  std::vector<Report> reports;
  for (auto& event : events) {
    if (event.kind == BrowseEvent::Kind::failed) {
      // The search has ended; what came with the failure goes with it.
      searchFailed(event.error);
      return;
    }
    if (event.kind == BrowseEvent::Kind::allForNow) {
      lastFailure_.reset();
      continue;
    }
    if (event.kind == BrowseEvent::Kind::found) {
      lastFailure_.reset();
      auto& service = services_[event.name];
      if (!service) {
        service = std::make_shared<AvahiNetService>(backend_, event.name, event.type, event.domain);
        reports.push_back({true, service});
      }
      service->addInstance(event.instance);
      continue;
    }
    auto it = services_.find(event.name);
    if (it == services_.end()) continue;
    it->second->removeInstance(event.instance);
    if (it->second->hasInstances()) continue;
    reports.push_back({false, it->second});
    services_.erase(it);
  }
  for (size_t i = 0; i < reports.size(); ++i) {
    auto d = delegate_.lock();
    if (!d) return;
    const bool moreComing = i + 1 < reports.size();
    if (reports[i].found) {
      d->netServiceBrowserDidFindService(this, reports[i].service, moreComing);
    } else {
      d->netServiceBrowserDidRemoveService(this, reports[i].service, moreComing);
    }
  }
}

std::shared_ptr<ServiceBrowser> AvahiBrowserFactory::makeBrowser() {
  return std::make_shared<AvahiBrowser>([](int& error) { return AvahiClientBackend::open(error); });
}

}  // namespace oxelo
