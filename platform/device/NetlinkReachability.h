#pragma once

#include <functional>
#include <string>
#include <thread>

#include "platform/device/Reachability.h"

namespace oxelo {

// Reachability on Linux: the status is evaluated from the interface list at
// each read; the notifier is a thread of its own that waits (poll) on a
// NETLINK_ROUTE socket subscribed to link and IPv4 address events and on a
// wake descriptor, evaluates the status after each burst of events, and
// posts a change notification when it differs from the last one.
//
// Created, started, stopped and destroyed on one thread (the main queue in
// the program); the destructor stops the notifier and joins its thread. The
// interface is chosen anew at each evaluation, so a Wi-Fi adapter that
// appears later is found.
class NetlinkReachability final : public Reachability {
 public:
  explicit NetlinkReachability(std::function<std::string()> interfaceName = [] {
    return wifiInterfaceName();
  });
  ~NetlinkReachability() override;
  NetlinkReachability(const NetlinkReachability&) = delete;
  NetlinkReachability& operator=(const NetlinkReachability&) = delete;

  NetworkStatus currentReachabilityStatus() const override;
  bool startNotifier() override;
  void stopNotifier() override;

 private:
  void watch(NetworkStatus initial);  // the notifier thread

  std::function<std::string()> interfaceName_;
  int socket_ = -1;  // netlink, owned by the notifier while it runs
  int wake_ = -1;    // eventfd that ends the notifier
  std::thread thread_;
};

}  // namespace oxelo
