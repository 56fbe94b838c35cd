#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "platform/device/PowerSupply.h"
#include "platform/device/PowerSupplyBattery.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using Attributes = std::map<std::string, std::string>;

// A staged power_supply folder: one sub-folder per supply, one file per
// attribute, each text ending in a line feed as sysfs writes it.
class StagedPower {
 public:
  void set(const std::string& supply, const Attributes& attributes) {
    auto dir = dir_.path() / supply;
    std::filesystem::create_directories(dir);
    for (auto& [name, value] : attributes) std::ofstream(dir / name) << value << "\n";
  }
  const std::filesystem::path& path() const { return dir_.path(); }

 private:
  test::TempDir dir_;
};

Attributes battery(const char* status, const char* capacity) {
  return {{"type", "Battery"}, {"status", status}, {"capacity", capacity}};
}
const Attributes kMainsOnline = {{"type", "Mains"}, {"online", "1"}};
const Attributes kMainsOffline = {{"type", "Mains"}, {"online", "0"}};

struct SupplyCase {
  const char* name;
  std::map<std::string, Attributes> supplies;
  BatteryState state;
  float level;
};

class PowerSupplyReadingTest : public testing::TestWithParam<SupplyCase> {};

TEST_P(PowerSupplyReadingTest, StateAndLevelFromTheSupplies) {
  StagedPower power;
  for (auto& [supply, attributes] : GetParam().supplies) power.set(supply, attributes);
  auto reading = readPowerSupply(power.path());
  EXPECT_EQ(reading.state, GetParam().state);
  EXPECT_FLOAT_EQ(reading.level, GetParam().level);
}

INSTANTIATE_TEST_SUITE_P(
    Supplies, PowerSupplyReadingTest,
    testing::Values(
        SupplyCase{"Charging",
                   {{"BAT0", battery("Charging", "57")}, {"AC", kMainsOnline}},
                   BatteryState::charging,
                   0.57f},
        SupplyCase{"Full",
                   {{"BAT0", battery("Full", "100")}, {"AC", kMainsOnline}},
                   BatteryState::full,
                   1.0f},
        SupplyCase{"Discharging",
                   {{"BAT0", battery("Discharging", "42")}, {"AC", kMainsOffline}},
                   BatteryState::unplugged,
                   0.42f},
        // A charge threshold holds the battery although the cable is in: only
        // charging or full count as a cable.
        SupplyCase{"NotChargingOnMains",
                   {{"BAT0", battery("Not charging", "80")}, {"AC", kMainsOnline}},
                   BatteryState::unplugged,
                   0.80f},
        SupplyCase{
            "UnknownStatus", {{"BAT0", battery("Unknown", "33")}}, BatteryState::unknown, 0.33f},
        SupplyCase{"NoBatteryOnMains", {{"AC", kMainsOnline}}, BatteryState::unplugged, -1.0f},
        SupplyCase{"NothingAtAll", {}, BatteryState::unplugged, -1.0f},
        SupplyCase{"PeripheralBatteryIgnored",
                   {{"hid-mouse-battery",
                     {{"type", "Battery"},
                      {"scope", "Device"},
                      {"status", "Charging"},
                      {"capacity", "90"}}}},
                   BatteryState::unplugged,
                   -1.0f},
        SupplyCase{"EmptySlotIgnored",
                   {{"BAT1", {{"type", "Battery"}, {"present", "0"}, {"status", "Charging"}}},
                    {"BAT0", battery("Discharging", "50")}},
                   BatteryState::unplugged,
                   0.5f},
        SupplyCase{"OneOfTwoCharging",
                   {{"BAT0", battery("Discharging", "40")}, {"BAT1", battery("Charging", "60")}},
                   BatteryState::charging,
                   0.5f},
        SupplyCase{"FullBeatsDischarging",
                   {{"BAT0", battery("Discharging", "40")}, {"BAT1", battery("Full", "100")}},
                   BatteryState::full,
                   0.7f},
        SupplyCase{"UnreadableCapacity",
                   {{"BAT0", battery("Charging", "n/a")}},
                   BatteryState::charging,
                   -1.0f},
        SupplyCase{"CapacityAboveHundredClamped",
                   {{"BAT0", battery("Full", "103")}},
                   BatteryState::full,
                   1.0f}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PowerSupplyReadingTest, MissingDirectoryReadsAsNoBattery) {
  test::TempDir dir;
  auto reading = readPowerSupply(dir.path() / "absent");
  EXPECT_EQ(reading.state, BatteryState::unplugged);
  EXPECT_FLOAT_EQ(reading.level, -1.0f);
}

TEST(PowerSupplyReadingTest, DirectoryFromTheEnvironment) {
  setenv("OXELO_POWER_SUPPLY_DIR", "/tmp/staged-power", 1);
  EXPECT_EQ(powerSupplyDirectory(), "/tmp/staged-power");
  unsetenv("OXELO_POWER_SUPPLY_DIR");
  EXPECT_EQ(powerSupplyDirectory(), "/sys/class/power_supply");
}

class PowerSupplyBatteryTest : public testing::Test {
 protected:
  void SetUp() override {
    power.set("BAT0", battery("Discharging", "50"));
    power.set("AC", kMainsOffline);
  }
  // Records every event with the state and level seen when it arrives.
  Subscription record(BatteryMonitor& monitor) {
    return monitor.addListener([this, &monitor](BatteryEvent event) {
      EXPECT_TRUE(MainQueue::isCurrent());
      events.push_back({event, monitor.batteryState(), monitor.batteryLevel()});
    });
  }
  struct Seen {
    BatteryEvent event;
    BatteryState state;
    float level;
  };

  test::ManualMain env;
  StagedPower power;
  std::vector<Seen> events;
};

TEST_F(PowerSupplyBatteryTest, OffUntilEnabledThenReadAtOnceWithoutAnEvent) {
  PowerSupplyBattery monitor(power.path());
  auto subscription = record(monitor);
  EXPECT_EQ(monitor.batteryState(), BatteryState::unknown);
  EXPECT_FLOAT_EQ(monitor.batteryLevel(), -1.0f);
  monitor.setBatteryMonitoringEnabled(true);
  EXPECT_EQ(monitor.batteryState(), BatteryState::unplugged);
  EXPECT_FLOAT_EQ(monitor.batteryLevel(), 0.5f);
  env.advance(PowerSupplyBattery::kPollInterval * 3);
  EXPECT_TRUE(events.empty());
}

TEST_F(PowerSupplyBatteryTest, CablePluggedInIsNoticedAtTheNextLook) {
  PowerSupplyBattery monitor(power.path());
  auto subscription = record(monitor);
  monitor.setBatteryMonitoringEnabled(true);
  env.advance(0.5);
  power.set("AC", kMainsOnline);
  power.set("BAT0", battery("Charging", "50"));
  env.advance(PowerSupplyBattery::kPollInterval - 0.5 - 0.01);
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(monitor.batteryState(), BatteryState::unplugged);
  env.advance(0.01);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].event, BatteryEvent::stateDidChange);
  EXPECT_EQ(events[0].state, BatteryState::charging);

  power.set("BAT0", battery("Full", "100"));
  env.advance(PowerSupplyBattery::kPollInterval);
  ASSERT_EQ(events.size(), 3u);  // state first, then level
  EXPECT_EQ(events[1].event, BatteryEvent::stateDidChange);
  EXPECT_EQ(events[2].event, BatteryEvent::levelDidChange);
  EXPECT_EQ(events[2].state, BatteryState::full);
  EXPECT_FLOAT_EQ(events[2].level, 1.0f);
}

TEST_F(PowerSupplyBatteryTest, LevelChangeAloneSendsOnlyTheLevelEvent) {
  PowerSupplyBattery monitor(power.path());
  auto subscription = record(monitor);
  monitor.setBatteryMonitoringEnabled(true);
  power.set("BAT0", battery("Discharging", "49"));
  env.advance(PowerSupplyBattery::kPollInterval);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].event, BatteryEvent::levelDidChange);
  EXPECT_FLOAT_EQ(events[0].level, 0.49f);
  env.advance(PowerSupplyBattery::kPollInterval * 2);  // nothing new: no event
  EXPECT_EQ(events.size(), 1u);
}

TEST_F(PowerSupplyBatteryTest, BatteryRemovedReadsUnplugged) {
  PowerSupplyBattery monitor(power.path());
  auto subscription = record(monitor);
  power.set("BAT0", battery("Charging", "70"));
  monitor.setBatteryMonitoringEnabled(true);
  std::filesystem::remove_all(power.path() / "BAT0");
  env.advance(PowerSupplyBattery::kPollInterval);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[1].state, BatteryState::unplugged);
  EXPECT_FLOAT_EQ(events[1].level, -1.0f);
}

TEST_F(PowerSupplyBatteryTest, SwitchedOffStopsLookingAndReadsUnknown) {
  PowerSupplyBattery monitor(power.path());
  auto subscription = record(monitor);
  monitor.setBatteryMonitoringEnabled(true);
  monitor.setBatteryMonitoringEnabled(false);
  EXPECT_EQ(monitor.batteryState(), BatteryState::unknown);
  EXPECT_FLOAT_EQ(monitor.batteryLevel(), -1.0f);
  power.set("BAT0", battery("Charging", "80"));
  env.advance(PowerSupplyBattery::kPollInterval * 3);
  EXPECT_TRUE(events.empty());
  EXPECT_LT(env.main().nextDeadline(), 0);  // no look is scheduled any more
}

}  // namespace
}  // namespace oxelo
