#pragma once

#include <filesystem>
#include <memory>
#include <mutex>

#include "platform/device/Battery.h"
#include "platform/device/PowerSupply.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

// The battery on Linux: while monitoring is on, the power supplies (see
// readPowerSupply) are read once at switch-on and then every kPollInterval
// seconds of the main queue's clock, on the main queue of the moment
// monitoring was switched on; a state or level
// that differs from the last look is posted as an event.
//
// Created and destroyed on the main queue (or while no thread runs it).
class PowerSupplyBattery final : public BatteryMonitor {
 public:
  static constexpr double kPollInterval = 2.0;

  explicit PowerSupplyBattery(std::filesystem::path directory = powerSupplyDirectory());
  ~PowerSupplyBattery() override;

  void setBatteryMonitoringEnabled(bool enabled) override;
  bool isBatteryMonitoringEnabled() const override;
  BatteryState batteryState() const override;
  float batteryLevel() const override;

 private:
  struct Poll;
  static void schedule(const std::shared_ptr<Poll>& poll);
  void look();  // main queue

  const std::filesystem::path directory_;
  std::shared_ptr<Poll> poll_;  // main queue only; set while monitoring
  mutable std::mutex mutex_;
  PowerReading reading_;  // guarded by mutex_
  bool enabled_ = false;  // guarded by mutex_
};

}  // namespace oxelo
