#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "discovery/AvahiBackend.h"
#include "discovery/AvahiNetService.h"
#include "discovery/ServiceBrowser.h"
#include "platform/dispatch/Observable.h"

namespace oxelo {

// The service browser on Avahi. Main queue: every operation runs there and
// every delegate call is posted there.
//
// Avahi reports a service once per interface and protocol it is seen on; the
// browser reports it once per name, found with its first place and removed
// with its last, as the same AvahiNetService object. Events that Avahi hands
// over together are delivered together, all but the last with moreComing.
//
// The connection to avahi-daemon is made by the first search. When it cannot
// be made, or breaks, the search fails with netServiceBrowserDidNotSearch and
// one log line (repeated failures of the same kind log nothing more), and the
// next search tries a new connection. The rest of discovery carries on.
class AvahiBrowser final : public ServiceBrowser,
                           public std::enable_shared_from_this<AvahiBrowser> {
 public:
  explicit AvahiBrowser(AvahiBackendFactory openBackend);
  ~AvahiBrowser() override;

  void setDelegate(std::weak_ptr<ServiceBrowserDelegate> delegate) override;
  // `type` and `domain` in the Bonjour spelling ("_x._tcp.", "local.").
  void searchForServicesOfTypeInDomain(const std::string& type, const std::string& domain) override;
  // Ends the search. Services already reported stay usable; a new search
  // reports every service anew.
  void stop() override;

 private:
  void deliver(std::vector<BrowseEvent> events);
  void searchFailed(int avahiError);

  AvahiBackendFactory openBackend_;
  std::weak_ptr<ServiceBrowserDelegate> delegate_;
  std::shared_ptr<AvahiBackend> backend_;
  std::unique_ptr<AvahiOperation> browse_;
  std::shared_ptr<MainQueueInbox<BrowseEvent>> inbox_;
  std::string type_, domain_;  // of the search, Bonjour spelling
  std::map<std::string, std::shared_ptr<AvahiNetService>> services_;  // by name
  std::optional<int> lastFailure_;                                    // the Avahi error last logged
};

// Makes AvahiBrowsers on avahi-daemon (AvahiClientBackend).
class AvahiBrowserFactory final : public ServiceBrowserFactory {
 public:
  std::shared_ptr<ServiceBrowser> makeBrowser() override;
};

}  // namespace oxelo
