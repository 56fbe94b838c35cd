#include "platform/device/Battery.h"

#include <mutex>

#include "platform/device/PowerSupplyBattery.h"

namespace oxelo {

namespace {
std::mutex sharedMutex;
std::shared_ptr<BatteryMonitor>& sharedSlot() {
  static std::shared_ptr<BatteryMonitor> monitor;
  return monitor;
}
}  // namespace

std::shared_ptr<BatteryMonitor> BatteryMonitor::shared() {
  std::lock_guard lock(sharedMutex);
  if (!sharedSlot()) sharedSlot() = std::make_shared<PowerSupplyBattery>();
  return sharedSlot();
}

void BatteryMonitor::setShared(std::shared_ptr<BatteryMonitor> monitor) {
  std::lock_guard lock(sharedMutex);
  sharedSlot() = std::move(monitor);
}

}  // namespace oxelo
