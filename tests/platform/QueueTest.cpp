#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/Semaphore.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

TEST(QueueTest, DrivenQueueRunsTasksInPostingOrderOnlyWhenDrained) {
  test::ManualMain env;
  std::vector<int> order;
  env.main().post([&] { order.push_back(1); });
  env.main().post([&] {
    order.push_back(2);
    env.main().post([&] { order.push_back(4); });  // posted from inside: runs in the same drain
  });
  env.main().post([&] { order.push_back(3); });
  EXPECT_TRUE(order.empty());
  EXPECT_EQ(env.drain(), 4u);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

// A cancelled timer never runs, even when it is already due.
TEST(QueueTest, DelayedTasksWaitForTheClockAndRunByDeadlineThenPostingOrder) {
  test::ManualMain env;
  std::vector<std::string> order;
  env.main().postAfter(3.0, [&] { order.push_back("b@3"); });
  env.main().postAfter(1.0, [&] { order.push_back("a@1"); });
  env.main().postAfter(3.0, [&] { order.push_back("c@3"); });
  auto early = env.main().postAfter(0.5, [&] { order.push_back("cancelled"); });
  auto due = env.main().postAfter(2.0, [&] { order.push_back("cancelled when due"); });
  early.cancel();
  env.drain();
  EXPECT_TRUE(order.empty());
  env.clock().advance(0.999);
  env.drain();
  EXPECT_TRUE(order.empty());
  env.clock().advance(0.001);
  env.drain();
  EXPECT_EQ(order, (std::vector<std::string>{"a@1"}));
  env.clock().advance(5.0);
  due.cancel();
  env.drain();
  EXPECT_EQ(order, (std::vector<std::string>{"a@1", "b@3", "c@3"}));
  EXPECT_TRUE(due.isCancelled());
  EXPECT_LT(env.main().nextDeadline(), 0);
}

TEST(QueueTest, RunSyncRunsInlineOnItsOwnQueueAndIsCurrentFollowsTheQueue) {
  test::ManualMain env;
  bool inner = false, wasCurrent = false, elsewhere = true;
  std::thread([&] { elsewhere = env.main().isCurrent(); }).join();
  EXPECT_FALSE(elsewhere);
  env.main().post([&] {
    wasCurrent = MainQueue::isCurrent();
    env.main().runSync([&] { inner = true; });  // would dead-lock if not inline
  });
  env.drain();
  EXPECT_TRUE(wasCurrent);
  EXPECT_TRUE(inner);
}

// A stopped queue drops what is queued and refuses more; runSync returns
// when the queue is stopped before or while it waits.
TEST(QueueTest, StoppedQueueDropsEverythingAndReleasesRunSync) {
  auto q = Queue::createDriven("q");
  int ran = 0;
  q->post([&] { ++ran; });
  q->postAfter(0, [&] { ++ran; });
  q->stop();
  q->post([&] { ++ran; });
  q->runSync([&] { ++ran; });  // would wait forever
  EXPECT_EQ(q->runPending(), 0u);
  EXPECT_EQ(ran, 0);

  // A call already waiting behind a busy task ends when the stop drops it.
  auto busy = Queue::create("busy");
  Semaphore release(0);
  busy->post([&] { release.wait(); });
  std::thread waiter([&] { busy->runSync([&] { ++ran; }); });
  busy->stop();
  release.signal();
  waiter.join();
  EXPECT_EQ(ran, 0);
}

TEST(SemaphoreTest, BinarySemaphoreLetsOneHolderThrough) {
  Semaphore s(1);
  EXPECT_TRUE(s.tryWait());
  EXPECT_FALSE(s.tryWait());
  EXPECT_FALSE(s.wait(0.01));
  s.signal();
  EXPECT_TRUE(s.wait(0.01));
}

}  // namespace
}  // namespace oxelo

#include "platform/dispatch/RepeatingTimer.h"

namespace oxelo {
namespace {

TEST(RepeatingTimerTest, TicksEveryIntervalAndStopsWhenInvalidatedFromItsOwnAction) {
  test::ManualMain env;
  std::vector<double> ticks;
  std::unique_ptr<RepeatingTimer> timer;
  timer = std::make_unique<RepeatingTimer>(MainQueue::get(), 5.0, [&] {
    ticks.push_back(env.clock().now());
    if (ticks.size() == 4) timer->invalidate();
  });
  double start = env.clock().now();
  timer->fire();  // at once, schedule unchanged
  env.advance(4.9);
  EXPECT_EQ(ticks.size(), 1u);
  env.advance(0.2);
  ASSERT_EQ(ticks.size(), 2u);
  EXPECT_NEAR(ticks[1] - start, 5.0, 0.051);
  env.advance(30.0);
  EXPECT_EQ(ticks.size(), 4u);
  EXPECT_FALSE(timer->isValid());
}

TEST(RepeatingTimerTest, DestroyedTimerNeverTicksAgain) {
  test::ManualMain env;
  int ticks = 0;
  auto timer = std::make_unique<RepeatingTimer>(MainQueue::get(), 1.0, [&] { ++ticks; });
  env.advance(1.0);
  EXPECT_EQ(ticks, 1);
  timer.reset();
  env.advance(5.0);
  EXPECT_EQ(ticks, 1);
}

}  // namespace
}  // namespace oxelo
