#include "platform/device/PowerSupply.h"

#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>

namespace oxelo {

namespace {

// The first line of a sysfs attribute, without the line end; none when the
// file can't be read.
std::optional<std::string> readAttribute(const std::filesystem::path& file) {
  std::ifstream in(file);
  if (!in) return std::nullopt;
  std::string line;
  if (!std::getline(in, line)) return std::string();
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
  return line;
}

bool isDeviceBattery(const std::filesystem::path& supply) {
  if (readAttribute(supply / "type") != "Battery") return false;
  if (readAttribute(supply / "present") == "0") return false;
  if (readAttribute(supply / "scope") == "Device") return false;
  return true;
}

std::optional<int> readPercent(const std::filesystem::path& file) {
  auto text = readAttribute(file);
  if (!text || text->empty()) return std::nullopt;
  int value = 0;
  auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  if (error != std::errc() || end != text->data() + text->size()) return std::nullopt;
  return value;
}

}  // namespace

std::filesystem::path powerSupplyDirectory() {
  const char* dir = getenv("OXELO_POWER_SUPPLY_DIR");
  if (dir && *dir) return dir;
  return "/sys/class/power_supply";
}

PowerReading readPowerSupply(const std::filesystem::path& directory) {
  bool anyBattery = false, charging = false, full = false, unplugged = false;
  int percentSum = 0, percentCount = 0;
  std::error_code ec;
  for (auto& entry : std::filesystem::directory_iterator(directory, ec)) {
    const auto& supply = entry.path();
    if (!isDeviceBattery(supply)) continue;
    anyBattery = true;
    auto status = readAttribute(supply / "status");
    charging |= status == "Charging";
    full |= status == "Full";
    unplugged |= status == "Discharging" || status == "Not charging";
    if (auto percent = readPercent(supply / "capacity")) {
      percentSum += *percent;
      ++percentCount;
    }
  }
  PowerReading reading;
  if (!anyBattery) {
    reading.state = BatteryState::unplugged;
    return reading;
  }
  if (charging) {
    reading.state = BatteryState::charging;
  } else if (full) {
    reading.state = BatteryState::full;
  } else if (unplugged) {
    reading.state = BatteryState::unplugged;
  }
  if (percentCount > 0)
    reading.level = std::clamp(static_cast<float>(percentSum) / percentCount / 100.0f, 0.0f, 1.0f);
  return reading;
}

}  // namespace oxelo
