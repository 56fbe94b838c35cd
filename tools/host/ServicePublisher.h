#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "discovery/AvahiConnection.h"

struct AvahiEntryGroup;

namespace oxelo::host {

// Publishes the host for `oxelo-host listen --publish`: the service
// "_tarnvik_oxelo._tcp" in the daemon's domain ("local"), under a name, on
// the host's TCP port, through avahi-daemon. The daemon announces it while
// the object lives; the destructor withdraws it. start() and the destructor
// run on the caller's thread; the registration goes on on the Avahi poll
// thread, which logs when the service is established, renamed after a name
// collision, or refused.
class ServicePublisher {
 public:
  ServicePublisher();
  ~ServicePublisher();
  ServicePublisher(const ServicePublisher&) = delete;
  ServicePublisher& operator=(const ServicePublisher&) = delete;

  // False, with `error` set, when avahi-daemon cannot be reached or refuses
  // the service.
  bool start(const std::string& name, uint16_t port, std::string& error);

  struct State;  // shared with the poll thread's callbacks, under the poll lock

 private:
  std::shared_ptr<AvahiConnection> connection_;
  std::unique_ptr<State> state_;
};

}  // namespace oxelo::host
