#pragma once

#include <memory>
#include <set>

#include "discovery/AvahiBackend.h"
#include "discovery/AvahiConnection.h"

namespace oxelo {

// The AvahiBackend of the program: browsers and resolvers of the Avahi client
// library on one AvahiConnection. Callbacks run on the connection's poll
// thread. When the client fails (the daemon went away), every running browse
// hears a `failed` event with the client's error.
class AvahiClientBackend final : public AvahiBackend {
 public:
  // Connects to the daemon: none, with `error`, when it cannot be reached.
  // Any thread.
  static std::shared_ptr<AvahiBackend> open(int& error);
  ~AvahiClientBackend() override;

  std::unique_ptr<AvahiOperation> browse(const std::string& type, const std::string& domain,
                                         std::function<void(BrowseEvent)> onEvent,
                                         int& error) override;
  std::unique_ptr<AvahiOperation> resolve(const ServiceInstance& instance, const std::string& name,
                                          const std::string& type, const std::string& domain,
                                          std::function<void(ResolveResult)> onResult,
                                          int& error) override;

  // The browses to tell of a client failure; under the poll lock.
  struct Browses {
    std::set<std::function<void(BrowseEvent)>*> listeners;
  };

 private:
  explicit AvahiClientBackend(std::shared_ptr<AvahiConnection> connection);

  std::shared_ptr<AvahiConnection> connection_;
  std::shared_ptr<Browses> browses_;
};

}  // namespace oxelo
