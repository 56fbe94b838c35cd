#pragma once

#include <functional>
#include <memory>
#include <mutex>

struct AvahiClient;
struct AvahiThreadedPoll;

namespace oxelo {

// One connection to avahi-daemon over the system D-Bus (DBUS_SYSTEM_BUS_ADDRESS
// names another bus): an Avahi client driven by a poll thread of its own.
//
// Every Avahi callback of the client and of the objects made on it (browsers,
// resolvers, entry groups) runs on that poll thread with the poll lock held.
// Any other thread holds the lock (lock()) around each Avahi call it makes,
// and must never take it on the poll thread. Freeing an Avahi object under the
// lock guarantees that none of its callbacks runs afterwards.
//
// Held by shared pointer by everything that made Avahi objects on it. The last
// owner must not be on the poll thread: the destructor stops and joins it.
class AvahiConnection {
 public:
  // Connects and starts the poll thread. None, with `error` set to an Avahi
  // error code (AVAHI_ERR_NO_DAEMON, ...), when the daemon cannot be reached.
  // Any thread.
  static std::shared_ptr<AvahiConnection> open(int& error);
  ~AvahiConnection();
  AvahiConnection(const AvahiConnection&) = delete;
  AvahiConnection& operator=(const AvahiConnection&) = delete;

  // The poll lock, held for the life of the returned object.
  class Lock {
   public:
    explicit Lock(AvahiThreadedPoll* poll);
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    AvahiThreadedPoll* poll_;
  };
  [[nodiscard]] Lock lock() const { return Lock(poll_); }

  // The client; use under the lock or on the poll thread.
  AvahiClient* client() const { return client_; }

  // Called on the poll thread with each later state of the client
  // (AvahiClientState) and avahi_client_errno at that moment. Set it under the
  // lock; an empty function removes it.
  void setStateListener(std::function<void(int state, int error)> listener);

 private:
  friend struct AvahiConnectionCallbacks;
  AvahiConnection() = default;

  AvahiThreadedPoll* poll_ = nullptr;
  AvahiClient* client_ = nullptr;
  std::function<void(int, int)> listener_;  // under the poll lock
};

}  // namespace oxelo
