#pragma once

#include <mutex>

#include "platform/device/Battery.h"

namespace oxelo {

// A battery that a test sets by hand. Like the real one it reads unknown and
// -1 while monitoring is off, and posts an event on the main queue for each
// change made while it is on. Any thread.
class FakeBatteryMonitor final : public BatteryMonitor {
 public:
  FakeBatteryMonitor(BatteryState state = BatteryState::unplugged, float level = 0.5f)
      : state_(state), level_(level) {}

  void setBatteryMonitoringEnabled(bool enabled) override { change(enabled_, enabled); }
  bool isBatteryMonitoringEnabled() const override { return read(enabled_, false); }
  BatteryState batteryState() const override { return read(state_, BatteryState::unknown); }
  float batteryLevel() const override { return read(level_, -1.0f); }

  // A cable in or out: charging or unplugged.
  void setCablePlugged(bool plugged) {
    setState(plugged ? BatteryState::charging : BatteryState::unplugged);
  }
  void setState(BatteryState state) {
    if (change(state_, state)) postEvent(BatteryEvent::stateDidChange);
  }
  void setLevel(float level) {
    if (change(level_, level)) postEvent(BatteryEvent::levelDidChange);
  }

 private:
  // The value while monitoring is on, else `off`.
  template <typename T>
  T read(const T& field, T off) const {
    std::lock_guard lock(mutex_);
    return enabled_ ? field : off;
  }
  // Stores the value; true when it differs and monitoring is on.
  template <typename T>
  bool change(T& field, T value) {
    std::lock_guard lock(mutex_);
    if (field == value) return false;
    field = value;
    return enabled_;
  }

  mutable std::mutex mutex_;
  bool enabled_ = false;
  BatteryState state_;
  float level_;
};

}  // namespace oxelo
