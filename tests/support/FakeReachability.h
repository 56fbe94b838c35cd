#pragma once

#include <atomic>

#include "platform/device/Reachability.h"

namespace oxelo {

// Reachability that a test sets by hand. Like the real one it reports a
// change of the status only between startNotifier() and stopNotifier(), on
// the main queue. Any thread.
class FakeReachability final : public Reachability {
 public:
  explicit FakeReachability(NetworkStatus status = NetworkStatus::notReachable) : status_(status) {}

  NetworkStatus currentReachabilityStatus() const override { return status_; }
  bool startNotifier() override {
    started_ = true;
    return true;
  }
  void stopNotifier() override { started_ = false; }

  void setStatus(NetworkStatus status) {
    if (status_.exchange(status) == status) return;
    if (started_) postChanged();
  }
  void setReachableViaWiFi(bool reachable) {
    setStatus(reachable ? NetworkStatus::reachableViaWiFi : NetworkStatus::notReachable);
  }

 private:
  std::atomic<NetworkStatus> status_;
  std::atomic<bool> started_{false};
};

}  // namespace oxelo
