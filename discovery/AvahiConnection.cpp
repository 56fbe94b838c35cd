#include "discovery/AvahiConnection.h"

#include <avahi-client/client.h>
#include <avahi-common/error.h>
#include <avahi-common/thread-watch.h>

namespace oxelo {

struct AvahiConnectionCallbacks {
  static void clientState(AvahiClient* client, AvahiClientState state, void* self) {
    auto* connection = static_cast<AvahiConnection*>(self);
    if (connection->listener_) connection->listener_(state, avahi_client_errno(client));
  }
};

AvahiConnection::Lock::Lock(AvahiThreadedPoll* poll) : poll_(poll) {
  avahi_threaded_poll_lock(poll_);
}

AvahiConnection::Lock::~Lock() { avahi_threaded_poll_unlock(poll_); }

std::shared_ptr<AvahiConnection> AvahiConnection::open(int& error) {
  std::shared_ptr<AvahiConnection> connection(new AvahiConnection());
  connection->poll_ = avahi_threaded_poll_new();
  if (!connection->poll_) {
    error = AVAHI_ERR_NO_MEMORY;
    return nullptr;
  }
  // Made before the poll thread runs, so that the callbacks from inside
  // avahi_client_new come on this thread, before anyone listens.
  connection->client_ =
      avahi_client_new(avahi_threaded_poll_get(connection->poll_), AvahiClientFlags(0),
                       &AvahiConnectionCallbacks::clientState, connection.get(), &error);
  if (!connection->client_) return nullptr;
  if (avahi_threaded_poll_start(connection->poll_) < 0) {
    error = AVAHI_ERR_OS;
    return nullptr;
  }
  return connection;
}

AvahiConnection::~AvahiConnection() {
  if (!poll_) return;
  avahi_threaded_poll_stop(poll_);  // harmless when it never started
  if (client_) avahi_client_free(client_);
  avahi_threaded_poll_free(poll_);
}

void AvahiConnection::setStateListener(std::function<void(int, int)> listener) {
  listener_ = std::move(listener);
}

}  // namespace oxelo
