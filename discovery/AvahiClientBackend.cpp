#include "discovery/AvahiClientBackend.h"

#include <arpa/inet.h>
#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/error.h>

#include <cstring>

namespace oxelo {

namespace {

BrowseEvent::Kind kindOf(AvahiBrowserEvent event) {
  switch (event) {
    case AVAHI_BROWSER_NEW:
      return BrowseEvent::Kind::found;
    case AVAHI_BROWSER_REMOVE:
      return BrowseEvent::Kind::removed;
    case AVAHI_BROWSER_FAILURE:
      return BrowseEvent::Kind::failed;
    case AVAHI_BROWSER_CACHE_EXHAUSTED:
    case AVAHI_BROWSER_ALL_FOR_NOW:
      break;
  }
  return BrowseEvent::Kind::allForNow;
}

SocketAddress socketAddressOf(const AvahiAddress& address, uint16_t port) {
  if (address.proto == AVAHI_PROTO_INET) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_port = htons(port);
    in.sin_addr.s_addr = address.data.ipv4.address;  // already in network order
    return SocketAddress(reinterpret_cast<const sockaddr*>(&in), sizeof in);
  }
  sockaddr_in6 in6{};
  in6.sin6_family = AF_INET6;
  in6.sin6_port = htons(port);
  std::memcpy(&in6.sin6_addr, address.data.ipv6.address, sizeof in6.sin6_addr);
  return SocketAddress(reinterpret_cast<const sockaddr*>(&in6), sizeof in6);
}

class BrowseOperation final : public AvahiOperation {
 public:
  BrowseOperation(std::shared_ptr<AvahiConnection> connection,
                  std::shared_ptr<AvahiClientBackend::Browses> browses,
                  std::function<void(BrowseEvent)> onEvent)
      : connection_(std::move(connection)),
        browses_(std::move(browses)),
        onEvent_(std::move(onEvent)) {}

  // Under the lock.
  bool start(const std::string& type, const std::string& domain, int& error) {
    browser_ = avahi_service_browser_new(connection_->client(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                         type.c_str(), domain.c_str(), AvahiLookupFlags(0),
                                         &BrowseOperation::callback, this);
    if (!browser_) {
      error = avahi_client_errno(connection_->client());
      return false;
    }
    browses_->listeners.insert(&onEvent_);
    return true;
  }

  ~BrowseOperation() override {
    auto lock = connection_->lock();
    browses_->listeners.erase(&onEvent_);
    if (browser_) avahi_service_browser_free(browser_);
  }

 private:
  static void callback(::AvahiServiceBrowser* browser, AvahiIfIndex interface,
                       AvahiProtocol protocol, AvahiBrowserEvent event, const char* name,
                       const char* type, const char* domain, AvahiLookupResultFlags, void* self) {
    BrowseEvent e;
    e.kind = kindOf(event);
    e.instance = {interface, protocol};
    e.name = name ? name : "";
    e.type = type ? type : "";
    e.domain = domain ? domain : "";
    if (e.kind == BrowseEvent::Kind::failed) {
      e.error = avahi_client_errno(avahi_service_browser_get_client(browser));
    }
    static_cast<BrowseOperation*>(self)->onEvent_(std::move(e));
  }

  std::shared_ptr<AvahiConnection> connection_;
  std::shared_ptr<AvahiClientBackend::Browses> browses_;
  std::function<void(BrowseEvent)> onEvent_;
  ::AvahiServiceBrowser* browser_ = nullptr;
};

class ResolveOperation final : public AvahiOperation {
 public:
  ResolveOperation(std::shared_ptr<AvahiConnection> connection,
                   std::function<void(ResolveResult)> onResult)
      : connection_(std::move(connection)), onResult_(std::move(onResult)) {}

  // Under the lock. The address asked for is of the protocol the instance
  // was seen on: A records over IPv4, AAAA over IPv6.
  bool start(const ServiceInstance& instance, const std::string& name, const std::string& type,
             const std::string& domain, int& error) {
    resolver_ = avahi_service_resolver_new(
        connection_->client(), instance.interface, instance.protocol, name.c_str(), type.c_str(),
        domain.c_str(), instance.protocol, AvahiLookupFlags(0), &ResolveOperation::callback, this);
    if (!resolver_) {
      error = avahi_client_errno(connection_->client());
      return false;
    }
    return true;
  }

  ~ResolveOperation() override {
    auto lock = connection_->lock();
    if (resolver_) avahi_service_resolver_free(resolver_);
  }

 private:
  static void callback(AvahiServiceResolver* resolver, AvahiIfIndex, AvahiProtocol,
                       AvahiResolverEvent event, const char*, const char*, const char*, const char*,
                       const AvahiAddress* address, uint16_t port, AvahiStringList*,
                       AvahiLookupResultFlags, void* self) {
    ResolveResult result;
    if (event == AVAHI_RESOLVER_FOUND && address) {
      result.address = socketAddressOf(*address, port);
      result.port = port;
    } else {
      result.error = avahi_client_errno(avahi_service_resolver_get_client(resolver));
      if (result.error == AVAHI_OK) result.error = AVAHI_ERR_FAILURE;
    }
    static_cast<ResolveOperation*>(self)->onResult_(std::move(result));
  }

  std::shared_ptr<AvahiConnection> connection_;
  std::function<void(ResolveResult)> onResult_;
  AvahiServiceResolver* resolver_ = nullptr;
};

}  // namespace

std::shared_ptr<AvahiBackend> AvahiClientBackend::open(int& error) {
  auto connection = AvahiConnection::open(error);
  if (!connection) return nullptr;
  return std::shared_ptr<AvahiBackend>(new AvahiClientBackend(std::move(connection)));
}

AvahiClientBackend::AvahiClientBackend(std::shared_ptr<AvahiConnection> connection)
    : connection_(std::move(connection)), browses_(std::make_shared<Browses>()) {
  auto lock = connection_->lock();
  connection_->setStateListener([browses = browses_](int state, int error) {
    if (state != AVAHI_CLIENT_FAILURE) return;
    BrowseEvent failed;
    failed.kind = BrowseEvent::Kind::failed;
    failed.error = error == AVAHI_OK ? AVAHI_ERR_DISCONNECTED : error;
    for (auto* listener : browses->listeners) (*listener)(failed);
  });
}

AvahiClientBackend::~AvahiClientBackend() {
  auto lock = connection_->lock();
  connection_->setStateListener({});
}

std::unique_ptr<AvahiOperation> AvahiClientBackend::browse(const std::string& type,
                                                           const std::string& domain,
                                                           std::function<void(BrowseEvent)> onEvent,
                                                           int& error) {
  auto operation = std::make_unique<BrowseOperation>(connection_, browses_, std::move(onEvent));
  {
    auto lock = connection_->lock();
    if (operation->start(type, domain, error)) return operation;
  }
  return nullptr;  // the operation's destructor takes the lock itself
}

std::unique_ptr<AvahiOperation> AvahiClientBackend::resolve(
    const ServiceInstance& instance, const std::string& name, const std::string& type,
    const std::string& domain, std::function<void(ResolveResult)> onResult, int& error) {
  auto operation = std::make_unique<ResolveOperation>(connection_, std::move(onResult));
  {
    auto lock = connection_->lock();
    if (operation->start(instance, name, type, domain, error)) return operation;
  }
  return nullptr;
}

}  // namespace oxelo
