#pragma once

#include <functional>
#include <memory>
#include <string>

#include "channels/SocketAddress.h"

namespace oxelo {

// Where a service was seen: an interface index and the protocol its
// announcement came over (0 IPv4, 1 IPv6, as AvahiProtocol counts).
struct ServiceInstance {
  int interface = -1;
  int protocol = -1;
  bool operator==(const ServiceInstance&) const = default;
};

inline constexpr int kAvahiProtocolIPv4 = 0;
inline constexpr int kAvahiProtocolIPv6 = 1;

// One event of a running browse, as Avahi reports it: per interface and
// protocol, with the type and domain in Avahi's spelling (no trailing dot).
struct BrowseEvent {
  enum class Kind { found, removed, allForNow, failed };
  Kind kind = Kind::found;
  ServiceInstance instance;
  std::string name;
  std::string type;
  std::string domain;
  int error = 0;  // Avahi error code, for `failed`
};

// The outcome of a resolve: an address with the service's port, or an Avahi
// error code.
struct ResolveResult {
  int error = 0;
  SocketAddress address;  // sockaddr_in or sockaddr_in6, port included
  int port = 0;
};

// A browse or a resolve in progress. Destroying it ends it; no callback of
// it runs after the destructor has returned.
class AvahiOperation {
 public:
  virtual ~AvahiOperation() = default;
};

// What the DNS-SD browser and its services need of Avahi, so that their
// logic runs against a fake in tests. Operations are started on the main
// queue; their callbacks come on any thread (the Avahi poll thread), possibly
// more than once, and must only hand the value on.
class AvahiBackend {
 public:
  virtual ~AvahiBackend() = default;

  // Browses for `type` in `domain` (Avahi's spelling) on every interface and
  // protocol. None, with `error` (an Avahi code), when it cannot start.
  virtual std::unique_ptr<AvahiOperation> browse(const std::string& type, const std::string& domain,
                                                 std::function<void(BrowseEvent)> onEvent,
                                                 int& error) = 0;
  // Resolves the service `name` as seen on `instance`, to an address of the
  // instance's protocol. None, with `error`, when it cannot start.
  virtual std::unique_ptr<AvahiOperation> resolve(const ServiceInstance& instance,
                                                  const std::string& name, const std::string& type,
                                                  const std::string& domain,
                                                  std::function<void(ResolveResult)> onResult,
                                                  int& error) = 0;
};

// Opens a backend: none, with `error` (an Avahi code), when the daemon cannot
// be reached.
using AvahiBackendFactory = std::function<std::shared_ptr<AvahiBackend>(int& error)>;

}  // namespace oxelo
