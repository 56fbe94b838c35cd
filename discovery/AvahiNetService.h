#pragma once

#include <memory>
#include <string>
#include <vector>

#include "discovery/AvahiBackend.h"
#include "discovery/ServiceBrowser.h"
#include "platform/dispatch/Observable.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

// A service that the Avahi browser found, known by its name: the places
// (interface and protocol) it was seen on, and its resolution.
//
// Main queue: made by AvahiBrowser, which keeps its places up to date; every
// operation runs there, and every delegate call is posted there, also a
// failure known at once. A resolve asks for the address of the place seen
// over IPv4 if there is one, else of the first place, so that the service's
// one address (addresses()) is IPv4 wherever the host announces over IPv4. It
// ends with the first address, a failure, or after its time-out on the main
// queue's clock (NSNetServices "timeout", -72007). A resolve asked for while
// one runs fails with "activity in progress" (-72003) and leaves the running
// one alone.
class AvahiNetService final : public NetService,
                              public std::enable_shared_from_this<AvahiNetService> {
 public:
  // `type` and `domain` in Avahi's spelling ("_x._tcp", "local").
  AvahiNetService(std::shared_ptr<AvahiBackend> backend, std::string name, std::string type,
                  std::string domain);
  ~AvahiNetService() override;

  std::string name() const override { return name_; }
  // The Bonjour spelling, with the trailing dot.
  std::string type() const override { return type_ + "."; }
  int port() const override { return port_; }
  std::vector<SocketAddress> addresses() const override { return addresses_; }
  void setDelegate(std::weak_ptr<ServiceBrowserDelegate> delegate) override;
  void resolveWithTimeout(double seconds) override;
  void stop() override;

  // The browser's bookkeeping of where the service is seen.
  void addInstance(const ServiceInstance& instance);
  void removeInstance(const ServiceInstance& instance);
  bool hasInstances() const { return !instances_.empty(); }

 private:
  bool isResolving() const { return resolve_ != nullptr; }
  void endResolve();
  void onResult(const ResolveResult& result);
  void onTimeout();
  void postDidNotResolve(int errorCode);

  std::shared_ptr<AvahiBackend> backend_;
  const std::string name_, type_, domain_;
  std::weak_ptr<ServiceBrowserDelegate> delegate_;
  std::vector<ServiceInstance> instances_;  // in the order seen
  std::vector<SocketAddress> addresses_;
  int port_ = 0;
  // The resolve in progress: the Avahi resolver, its inbox and its time-out.
  std::unique_ptr<AvahiOperation> resolve_;
  std::shared_ptr<MainQueueInbox<ResolveResult>> inbox_;
  TimerHandle timeout_;
};

}  // namespace oxelo
