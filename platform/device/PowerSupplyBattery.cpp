#include "platform/device/PowerSupplyBattery.h"

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"

namespace oxelo {

// The polling chain. Its tasks hold it weakly and the queue weakly, so that
// neither the monitor nor the queue is kept alive by a pending look.
struct PowerSupplyBattery::Poll : std::enable_shared_from_this<Poll> {
  PowerSupplyBattery* owner;
  std::weak_ptr<Queue> queue;
  TimerHandle pending;
};

PowerSupplyBattery::PowerSupplyBattery(std::filesystem::path directory)
    : directory_(std::move(directory)) {}

PowerSupplyBattery::~PowerSupplyBattery() {
  if (poll_) poll_->pending.cancel();
}

void PowerSupplyBattery::schedule(const std::shared_ptr<Poll>& poll) {
  auto queue = poll->queue.lock();
  if (!queue) return;
  poll->pending = postAfterWeak(*queue, kPollInterval, std::weak_ptr<Poll>(poll), [](Poll& p) {
    schedule(p.shared_from_this());
    p.owner->look();
  });
}

void PowerSupplyBattery::setBatteryMonitoringEnabled(bool enabled) {
  if (enabled == isBatteryMonitoringEnabled()) return;
  if (!enabled) {
    poll_->pending.cancel();
    poll_.reset();
    std::lock_guard lock(mutex_);
    enabled_ = false;
    reading_ = PowerReading{};
    return;
  }
  auto first = readPowerSupply(directory_);
  {
    std::lock_guard lock(mutex_);
    enabled_ = true;
    reading_ = first;
  }
  poll_ = std::make_shared<Poll>();
  poll_->owner = this;
  poll_->queue = MainQueue::get();
  schedule(poll_);
}

bool PowerSupplyBattery::isBatteryMonitoringEnabled() const {
  std::lock_guard lock(mutex_);
  return enabled_;
}

BatteryState PowerSupplyBattery::batteryState() const {
  std::lock_guard lock(mutex_);
  return reading_.state;
}

float PowerSupplyBattery::batteryLevel() const {
  std::lock_guard lock(mutex_);
  return reading_.level;
}

void PowerSupplyBattery::look() {
  auto now = readPowerSupply(directory_);
  PowerReading before;
  {
    std::lock_guard lock(mutex_);
    if (!enabled_) return;
    before = reading_;
    reading_ = now;
  }
  if (now.state != before.state) postEvent(BatteryEvent::stateDidChange);
  if (now.level != before.level) postEvent(BatteryEvent::levelDidChange);
}

}  // namespace oxelo
