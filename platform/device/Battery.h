#pragma once

#include <functional>
#include <memory>

#include "platform/dispatch/Observable.h"

namespace oxelo {

// The platform's battery states, by their numbers.
enum class BatteryState { unknown = 0, unplugged = 1, charging = 2, full = 3 };

enum class BatteryEvent {
  stateDidChange,  // UIDeviceBatteryStateDidChangeNotification
  levelDidChange,  // UIDeviceBatteryLevelDidChangeNotification
};

// The device's battery state and charge level. A state of charging or full
// is what the connection flow takes to mean that a cable is in.
//
// Monitoring is off at creation: the state then reads unknown and the level
// -1. setBatteryMonitoringEnabled() runs on the main queue; batteryState()
// and batteryLevel() may be read on any thread and return the values of the
// last look at the device. Change events run on the main queue, the state's
// before the level's when both changed at one look.
class BatteryMonitor {
 public:
  virtual ~BatteryMonitor() = default;

  // The process-wide monitor: a PowerSupplyBattery on
  // powerSupplyDirectory() until setShared() (tests).
  static std::shared_ptr<BatteryMonitor> shared();
  static void setShared(std::shared_ptr<BatteryMonitor> monitor);

  // Main queue. Switching on looks at the device at once, so the state is
  // right when the call returns; no event is sent for that first look.
  virtual void setBatteryMonitoringEnabled(bool enabled) = 0;
  virtual bool isBatteryMonitoringEnabled() const = 0;
  // Any thread.
  virtual BatteryState batteryState() const = 0;
  // Any thread. 0.0 to 1.0; -1.0 when unknown or while monitoring is off.
  virtual float batteryLevel() const = 0;

  [[nodiscard]] Subscription addListener(std::function<void(BatteryEvent)> listener) {
    return listeners_.add(std::move(listener));
  }

 protected:
  // Any thread: tells the listeners on the main queue.
  void postEvent(BatteryEvent event) { listeners_.notify(event); }

 private:
  Observers<BatteryEvent> listeners_{Delivery::onMainQueue()};
};

}  // namespace oxelo
