#include <gtest/gtest.h>

#include <signal.h>
#include <atomic>
#include <fstream>
#include <future>
#include <numeric>
#include <thread>
#include <vector>

#include "platform/defaults/UserDefaults.h"
#include "platform/device/AppLifecycle.h"
#include "platform/device/NetlinkReachability.h"
#include "platform/device/PowerSupplyBattery.h"
#include "platform/dispatch/Queue.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

TEST(QueueConcurrencyTest, ThreadedQueueKeepsEachPostersOrderAndRunsOneAtATime) {
  auto q = Queue::create("worker", std::make_shared<SystemClock>());
  constexpr int kThreads = 4, kPerThread = 2000;
  std::vector<std::vector<int>> seen(kThreads);
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t) {
    posters.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        q->post([&, t, i] {
          if (running.fetch_add(1) != 0) overlapped = true;
          seen[t].push_back(i);  // unsynchronised on purpose: the queue is serial
          running.fetch_sub(1);
        });
      }
    });
  }
  for (auto& p : posters) p.join();
  q->runSync([] {});
  EXPECT_FALSE(overlapped);
  std::vector<int> inOrder(kPerThread);
  std::iota(inOrder.begin(), inOrder.end(), 0);
  EXPECT_EQ(seen, std::vector(kThreads, inOrder));
}

TEST(QueueConcurrencyTest, ThreadedQueueFiresTimersWhenAManualClockJumps) {
  auto clock = std::make_shared<ManualClock>();
  auto q = Queue::create("timers", clock);
  std::promise<double> fired;
  q->postAfter(600.0, [&] { fired.set_value(clock->now()); });
  auto result = fired.get_future();
  EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  clock->advance(600.0);
  ASSERT_EQ(result.wait_for(std::chrono::seconds(5)), std::future_status::ready);
  EXPECT_DOUBLE_EQ(result.get(), 1600.0);
}

TEST(QueueConcurrencyTest, QueueReleasedByItsOwnTaskShutsDownSafely) {
  auto q = Queue::create("self");
  std::promise<void> done;
  auto* holder = new std::shared_ptr<Queue>(q);
  q.reset();
  (*holder)->post([holder, &done] {
    delete holder;  // the last reference goes inside the queue's own task
    done.set_value();
  });
  EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
}

TEST(UserDefaultsConcurrencyTest, ConcurrentReadersWritersAndSynchronizeKeepEveryKey) {
  test::TempDir dir;
  UserDefaults d(dir.path());
  d.registerDefaults({{"videoFPS", 30}});
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 300; ++i) {
        d.setInteger("k" + std::to_string(t), i);
        EXPECT_EQ(d.integerForKey("videoFPS"), 30);
        if (i % 50 == 0) d.synchronize();
      }
    });
  }
  for (auto& th : threads) th.join();
  ASSERT_TRUE(d.synchronize());
  UserDefaults reread(dir.path());
  for (int t = 0; t < 4; ++t) EXPECT_EQ(reread.integerForKey("k" + std::to_string(t)), 299);
}

// Whatever the interleaving, the notifications come in whole pairs that alternate.
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

  using enum LifecycleEvent;
  const LifecycleEvent cycle[] = {willResignActive, didEnterBackground, willEnterForeground,
                                  didBecomeActive};
  ASSERT_TRUE(!seen.empty() && seen.size() % 2 == 0) << seen.size();
  for (size_t i = 0; i < seen.size(); ++i) ASSERT_EQ(seen[i], cycle[i % 4]) << "at " << i;
  EXPECT_EQ(lifecycle->applicationState(), seen.back() == didEnterBackground
                                               ? ApplicationState::background
                                               : ApplicationState::active);
}

// The send queue reads the level for its status blocks while the main queue looks.
TEST(DeviceConcurrencyTest, BatteryReadOnAnotherThreadWhileTheMainQueueLooks) {
  test::ManualMain env;
  test::TempDir dir;
  std::filesystem::create_directories(dir.path() / "BAT0");
  std::ofstream(dir.path() / "BAT0" / "type") << "Battery\n";
  auto write = [&](const char* status, int capacity) {
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
      const float level = monitor.batteryLevel();
      const auto state = monitor.batteryState();
      oddReadings += level < 0.1f - 1e-6f || level > 0.3f + 1e-6f ||
                     (state != BatteryState::unplugged && state != BatteryState::charging);
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

// The notifier thread ends at once every time, while the status is read elsewhere.
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
