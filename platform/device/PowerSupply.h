#pragma once

#include <filesystem>

#include "platform/device/Battery.h"

namespace oxelo {

// What one look at the power supplies gives.
struct PowerReading {
  BatteryState state = BatteryState::unknown;
  float level = -1.0f;
  bool operator==(const PowerReading&) const = default;
};

// $OXELO_POWER_SUPPLY_DIR when set and not empty, else /sys/class/power_supply.
std::filesystem::path powerSupplyDirectory();

// Reads the supplies under `directory` (one folder each, as in sysfs).
//
// Only the device's own batteries count: folders whose "type" is "Battery",
// leaving out those with "present" 0 and those with "scope" "Device" (the
// batteries of a mouse or a headset). Mains and USB supplies play no part:
// a cable counts as in when a battery charges or is full, and a device
// without a battery reads unplugged.
//
// State: "Charging" in any battery gives charging; else "Full" in any gives
// full; else "Discharging" or "Not charging" in any gives unplugged; else
// (only "Unknown" or unreadable texts) unknown. No battery: unplugged.
// Level: the mean of the batteries' "capacity" percentages as a fraction,
// clamped to 0..1; -1 when no battery tells one.
PowerReading readPowerSupply(const std::filesystem::path& directory);

}  // namespace oxelo
