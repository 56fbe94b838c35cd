#include "tools/host/ServicePublisher.h"

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>

#include "discovery/AvahiErrors.h"
#include "platform/log/Log.h"

namespace oxelo::host {

namespace {
constexpr const char* kServiceType = "_tarnvik_oxelo._tcp";
}  // namespace

struct ServicePublisher::State {
  std::string name;
  uint16_t port = 0;
  AvahiEntryGroup* group = nullptr;

  // Adds and commits the service; an Avahi error code, 0 on success.
  int publish(AvahiClient* client) {
    if (!group) group = avahi_entry_group_new(client, &State::groupChanged, this);
    if (!group) return avahi_client_errno(client);
    if (!avahi_entry_group_is_empty(group)) return 0;
    int error = avahi_entry_group_add_service(group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                              AvahiPublishFlags(0), name.c_str(), kServiceType,
                                              nullptr, nullptr, port, nullptr);
    if (error == 0) error = avahi_entry_group_commit(group);
    return error;
  }

  // Poll thread.
  void clientChanged(AvahiClient* client, int state) {
    if (state == AVAHI_CLIENT_S_RUNNING) {
      if (int error = publish(client); error != 0) {
        oxlog("host - publishing '{}' failed: {}", name, avahiErrorText(error));
      }
      return;
    }
    if ((state == AVAHI_CLIENT_S_COLLISION || state == AVAHI_CLIENT_S_REGISTERING) && group) {
      avahi_entry_group_reset(group);  // published again once the daemon runs
    }
    if (state == AVAHI_CLIENT_FAILURE) {
      oxlog("host - avahi-daemon went away: {}", avahiErrorText(avahi_client_errno(client)));
    }
  }

  static void groupChanged(AvahiEntryGroup* g, AvahiEntryGroupState state, void* self) {
    auto* s = static_cast<State*>(self);
    switch (state) {
      case AVAHI_ENTRY_GROUP_ESTABLISHED:
        oxlog("host - published '{}' as {} on port {}", s->name, kServiceType, s->port);
        break;
      case AVAHI_ENTRY_GROUP_COLLISION: {
        char* other = avahi_alternative_service_name(s->name.c_str());
        oxlog("host - the name '{}' is taken on the network; publishing as '{}'", s->name, other);
        s->name = other;
        avahi_free(other);
        avahi_entry_group_reset(g);
        if (int error = s->publish(avahi_entry_group_get_client(g)); error != 0) {
          oxlog("host - publishing '{}' failed: {}", s->name, avahiErrorText(error));
        }
        break;
      }
      case AVAHI_ENTRY_GROUP_FAILURE:
        oxlog("host - publishing '{}' failed: {}", s->name,
              avahiErrorText(avahi_client_errno(avahi_entry_group_get_client(g))));
        break;
      case AVAHI_ENTRY_GROUP_UNCOMMITED:
      case AVAHI_ENTRY_GROUP_REGISTERING:
        break;
    }
  }
};

ServicePublisher::ServicePublisher() = default;

bool ServicePublisher::start(const std::string& name, uint16_t port, std::string& error) {
  int code = 0;
  connection_ = AvahiConnection::open(code);
  if (!connection_) {
    error =
        "cannot publish the service: avahi-daemon is not reachable (" + avahiErrorText(code) + ")";
    return false;
  }
  state_ = std::make_unique<State>();
  state_->name = name;
  state_->port = port;
  auto lock = connection_->lock();
  connection_->setStateListener(
      [state = state_.get(), client = connection_->client()](int clientState, int) {
        state->clientChanged(client, clientState);
      });
  if (avahi_client_get_state(connection_->client()) != AVAHI_CLIENT_S_RUNNING) return true;
  if (int failure = state_->publish(connection_->client()); failure != 0) {
    error = "cannot publish '" + name + "': " + avahiErrorText(failure);
    return false;
  }
  return true;
}

ServicePublisher::~ServicePublisher() {
  if (!connection_) return;
  bool published = false;
  {
    auto lock = connection_->lock();
    connection_->setStateListener({});
    if (state_ && state_->group) {
      avahi_entry_group_free(state_->group);  // withdraws the service
      published = true;
    }
  }
  connection_.reset();
  if (published) oxlog("host - service withdrawn");
}

}  // namespace oxelo::host
