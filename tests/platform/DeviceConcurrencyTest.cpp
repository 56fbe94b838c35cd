#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <fstream>
#include <thread>
#include <vector>

#include "platform/device/AppLifecycle.h"
#include "platform/device/NetlinkReachability.h"
#include "platform/device/PowerSupplyBattery.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

// Signals taken on two threads at once, while the main queue runs: whatever
// the interleaving, the notifications come in whole pairs that alternate.
TEST(DeviceConcurrencyTest, LifecycleSignalsFromTwoThreadsKeepWholeAlternatingPairs) {
  test::ManualMain env;
  auto lifecycle = std::make_shared<AppLifecycle>();
  AppLifecycle::setShared(lifecycle);
  std::vector<LifecycleEvent> seen;
  auto subscription = lifecycle->addListener([&](LifecycleEvent e) { seen.push_back(e); });
  std::atomic<bool> go{false};
  auto sender = [&](int sig) {
    while (!go) std::this_thread::yield();
    for (int i = 0; i < 500; ++i) AppLifecycle::handleSignal(sig);
  };
  std::thread background(sender, SIGUSR1), foreground(sender, SIGUSR2);
  go = true;
  for (int i = 0; i < 200; ++i) env.drain();
  background.join();
  foreground.join();
  env.drain();
  AppLifecycle::setShared(nullptr);

  const LifecycleEvent cycle[] = {
      LifecycleEvent::willResignActive, LifecycleEvent::didEnterBackground,
      LifecycleEvent::willEnterForeground, LifecycleEvent::didBecomeActive};
  ASSERT_FALSE(seen.empty());
  ASSERT_EQ(seen.size() % 2, 0u);
  for (size_t i = 0; i < seen.size(); ++i) ASSERT_EQ(seen[i], cycle[i % 4]) << "at " << i;
  EXPECT_EQ(lifecycle->applicationState(), seen.back() == LifecycleEvent::didEnterBackground
                                               ? ApplicationState::background
                                               : ApplicationState::active);
}

// The level is read on another thread (the send queue builds status blocks
// from it) while the main queue looks at the supplies.
TEST(DeviceConcurrencyTest, BatteryReadOnAnotherThreadWhileTheMainQueueLooks) {
  test::ManualMain env;
  test::TempDir dir;
  auto write = [&](const char* status, int capacity) {
    std::filesystem::create_directories(dir.path() / "BAT0");
    std::ofstream(dir.path() / "BAT0" / "type") << "Battery\n";
    std::ofstream(dir.path() / "BAT0" / "status") << status << "\n";
    std::ofstream(dir.path() / "BAT0" / "capacity") << capacity << "\n";
  };
  write("Discharging", 10);
  PowerSupplyBattery monitor(dir.path());
  monitor.setBatteryMonitoringEnabled(true);
  std::atomic<bool> done{false};
  std::atomic<int> oddReadings{0};
  std::thread reader([&] {
    while (!done) {
      float level = monitor.batteryLevel();
      auto state = monitor.batteryState();
      if (level < 0.1f - 1e-6f || level > 0.3f + 1e-6f) ++oddReadings;
      if (state != BatteryState::unplugged && state != BatteryState::charging) ++oddReadings;
    }
  });
  for (int i = 0; i < 60; ++i) {
    write(i % 2 ? "Charging" : "Discharging", 10 + (i % 3) * 10);
    env.advance(PowerSupplyBattery::kPollInterval);
  }
  done = true;
  reader.join();
  EXPECT_EQ(oddReadings, 0);
}

// Start and stop race with no event: the notifier thread ends at once every
// time, and the status may be read meanwhile on another thread.
TEST(DeviceConcurrencyTest, NetlinkNotifierStartsAndStopsWhileReadElsewhere) {
  test::ManualMain env;
  NetlinkReachability reachability([] { return std::string("lo"); });
  std::atomic<bool> done{false};
  std::atomic<int> unreachable{0};
  std::thread reader([&] {
    while (!done)
      if (!reachability.isReachableViaWiFi()) ++unreachable;
  });
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(reachability.startNotifier());
    reachability.stopNotifier();
  }
  done = true;
  reader.join();
  EXPECT_EQ(unreachable, 0);
}

}  // namespace
}  // namespace oxelo
