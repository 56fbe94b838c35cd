#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/device/NetworkInterfaces.h"
#include "platform/dispatch/Observable.h"

namespace oxelo {

enum class NetworkStatus { notReachable = 0, reachableViaWiFi = 1 };

// Whether the local network is reachable by Wi-Fi, with a change notification
// (kReachabilityChangedNotification). "Reachable via Wi-Fi" means: the Wi-Fi
// interface (wifiInterfaceName()) is up, has its carrier (IFF_UP and
// IFF_RUNNING) and holds an IPv4 address.
//
// The status may be read on any thread. Change listeners run on the main
// queue, once per change of the status between notifier start and stop;
// interface events that leave the status as it was are not reported.
class Reachability {
 public:
  virtual ~Reachability() = default;

  // A new watcher of the Wi-Fi interface: a netlink one, unless a factory
  // has been installed (tests). Any thread.
  static std::shared_ptr<Reachability> reachabilityForLocalWiFi();
  // Replaces what reachabilityForLocalWiFi() creates; an empty function
  // restores the netlink watcher.
  static void setLocalWiFiFactory(std::function<std::shared_ptr<Reachability>()> factory);

  // The status now. Any thread.
  virtual NetworkStatus currentReachabilityStatus() const = 0;
  bool isReachableViaWiFi() const {
    return currentReachabilityStatus() == NetworkStatus::reachableViaWiFi;
  }

  // Begins watching; returns false, with a log line, when the interface
  // events cannot be watched. Starting twice is harmless.
  virtual bool startNotifier() = 0;
  // Ends watching; no change is reported after it returns. Harmless when
  // not started.
  virtual void stopNotifier() = 0;

  // The change notification; the listener reads the new status itself.
  [[nodiscard]] Subscription addChangeListener(std::function<void()> listener) {
    return listeners_.add(std::move(listener));
  }

 protected:
  // Any thread: tells the listeners on the main queue.
  void postChanged() { listeners_.notify(); }

 private:
  Observers<> listeners_{Delivery::onMainQueue()};
};

// The rule above, on an interface list: true when `interface` is not empty,
// is up with its carrier, and has an IPv4 entry.
bool isWiFiReachable(const std::vector<InterfaceAddress>& list, const std::string& interface);

}  // namespace oxelo
