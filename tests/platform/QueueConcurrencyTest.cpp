#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "platform/dispatch/Queue.h"

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
  for (auto& s : seen) {
    ASSERT_EQ(s.size(), static_cast<size_t>(kPerThread));
    for (int i = 0; i < kPerThread; ++i) ASSERT_EQ(s[i], i);
  }
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

}  // namespace
}  // namespace oxelo
