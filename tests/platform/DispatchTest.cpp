#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/Observable.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/Queue.h"
#include "platform/dispatch/QueueCheck.h"
#include "platform/dispatch/RepeatingTimer.h"
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
  EXPECT_TRUE(wasCurrent && inner);
}

// runSync returns when the queue is stopped before or while it waits.
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

// A main-queue operation called from another thread stops the test build.
void mainQueueOperation() { OX_ASSERT_ON_MAIN_QUEUE(); }

TEST(QueueCheckDeathTest, MainQueueOperationOnAnotherThreadAborts) {
  test::ManualMain env;
  mainQueueOperation();  // the test's thread drives the main queue
#ifdef OXELO_QUEUE_CHECKS
  EXPECT_DEATH(std::thread(mainQueueOperation).join(),
               "mainQueueOperation must run on the main queue");
#else
  GTEST_SKIP() << "queue checks are compiled out of this build";
#endif
}

// A destroyed timer never ticks again either.
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

  timer = std::make_unique<RepeatingTimer>(MainQueue::get(), 1.0, [&] { ticks.push_back(0); });
  env.advance(1.0);
  timer.reset();
  env.advance(5.0);
  EXPECT_EQ(ticks.size(), 5u);
}

// The same rules, whichever way the observers are reached.
enum class Way { notifyingThread, mainQueue, ownQueue };

struct DeliveryCase {
  const char* name;
  Way way;
};

class ObserversDeliveryTest : public testing::TestWithParam<DeliveryCase> {
 protected:
  Way way() const { return GetParam().way; }
  Delivery delivery() {
    if (way() == Way::mainQueue) return Delivery::onMainQueue();
    return way() == Way::ownQueue ? Delivery::on(own) : Delivery::onNotifyingThread();
  }
  bool queued() const { return way() != Way::notifyingThread; }
  void deliverPosted() {
    env.drain();
    own->runPending();
  }
  // Whether an observer runs on the queue it was given (or the notifying thread).
  bool onTheRightThread() const {
    if (way() == Way::mainQueue) return MainQueue::isCurrent();
    return way() == Way::ownQueue ? own->isCurrent() : true;
  }

  test::ManualMain env;
  std::shared_ptr<Queue> own = Queue::createDriven("observers");
};

TEST_P(ObserversDeliveryTest, CallsTheObserversRegisteredAtDeliveryInOrderAfterTheStep) {
  Observers<int> list(delivery());
  std::vector<std::string> seen;
  bool rightThread = true;
  auto first = list.add([&](int v) {
    rightThread = rightThread && onTheRightThread();
    seen.push_back("first " + std::to_string(v));
  });
  Subscription late;
  list.notifyWithStep([&] { seen.push_back("step"); }, 7);
  // Added after the notification but before its delivery: a queued one reaches it too.
  late = list.add([&](int v) { seen.push_back("late " + std::to_string(v)); });
  if (queued()) {
    EXPECT_TRUE(seen.empty()) << "delivered inline";
    deliverPosted();
  }
  std::vector<std::string> expected{"step", "first 7"};
  if (queued()) expected.push_back("late 7");
  EXPECT_EQ(seen, expected);
  EXPECT_TRUE(rightThread);
}

TEST_P(ObserversDeliveryTest, AnObserverRemovedBeforeItsTurnIsNotCalled) {
  Observers<> list(delivery());
  int calls = 0;
  Subscription second;
  auto first = list.add([&] {
    ++calls;
    second.reset();  // removes the one after it, within the same notification
  });
  second = list.add([&] { ++calls; });
  list.notify();
  deliverPosted();
  EXPECT_EQ(calls, 1);

  Subscription removed = list.add([&] { calls += 100; });
  list.notify();
  removed.reset();  // before a queued delivery runs
  first.reset();
  deliverPosted();
  EXPECT_EQ(calls, queued() ? 1 : 102);
}

TEST_P(ObserversDeliveryTest, ObservableDeliversOldAndNewValues) {
  Observable<std::string> name("a", delivery());
  std::vector<std::pair<std::string, std::string>> changes;
  auto sub =
      name.observe([&](const std::string& o, const std::string& n) { changes.emplace_back(o, n); });
  name.set("b");
  name.set("b");
  name.set("c");
  EXPECT_EQ(name.get(), "c");  // stored at once, whatever the delivery
  deliverPosted();
  EXPECT_EQ(changes, (std::vector<std::pair<std::string, std::string>>{{"a", "b"}, {"b", "c"}}));
}

INSTANTIATE_TEST_SUITE_P(Deliveries, ObserversDeliveryTest,
                         testing::Values(DeliveryCase("NotifyingThread", Way::notifyingThread),
                                         DeliveryCase("MainQueue", Way::mainQueue),
                                         DeliveryCase("OwnQueue", Way::ownQueue)),
                         [](const auto& info) { return info.param.name; });

TEST(ObserversLifetimeTest, NotificationsOfAListOrToAQueueThatIsGoneAreDropped) {
  test::ManualMain env;
  int calls = 0;
  bool stepped = false;
  auto list = std::make_unique<Observers<int>>(Delivery::onMainQueue());
  auto sub = list->add([&](int) { ++calls; });
  list->notifyWithStep([&] { stepped = true; }, 1);
  list.reset();
  env.drain();
  sub.reset();  // outliving the list is harmless

  auto queue = Queue::createDriven("gone");
  Observers<int> onQueue(Delivery::on(queue));
  sub = onQueue.add([&](int) { ++calls; });
  onQueue.notify(1);
  queue.reset();
  onQueue.notify(2);  // no queue to post to
  EXPECT_EQ(calls, 0);
  EXPECT_FALSE(stepped);
}

struct Owner {
  int runs = 0;
  std::unique_ptr<int> received;
};

TEST(PostWeakTest, RunsWithTheOwnerOnItsQueueAndMovesTheDataIn) {
  auto queue = Queue::createDriven("target");
  auto owner = std::make_shared<Owner>();
  auto data = std::make_unique<int>(42);
  int* address = data.get();
  bool onQueue = false;
  postWeak(*queue, std::weak_ptr<Owner>(owner),
           [&queue, &onQueue, data = std::move(data)](Owner& o) mutable {
             onQueue = queue->isCurrent();
             ++o.runs;
             o.received = std::move(data);
           });
  EXPECT_EQ(owner.use_count(), 1) << "a waiting task must not keep its owner alive";
  EXPECT_EQ(owner->runs, 0);
  EXPECT_EQ(queue->runPending(), 1u);
  EXPECT_TRUE(onQueue && owner->runs == 1);
  ASSERT_TRUE(owner->received);
  EXPECT_EQ(owner->received.get(), address) << "moved, not copied";
}

// Cases: time waited, cancelled, owner gone, runs.
TEST(PostAfterWeakTest, RunsOnceTheQueuesClockReachesTheDelay) {
  const std::tuple<double, bool, bool, int> cases[] = {{1.99, false, false, 0},
                                                       {2.0, false, false, 1},
                                                       {3.0, true, false, 0},
                                                       {3.0, false, true, 0}};
  for (auto [advance, cancel, ownerGone, expected] : cases) {
    auto clock = std::make_shared<ManualClock>();
    auto queue = Queue::createDriven("target", clock);
    auto owner = std::make_shared<Owner>();
    int runs = 0;
    auto handle = postAfterWeak(*queue, 2.0, std::weak_ptr<Owner>(owner), [&](Owner&) { ++runs; });
    if (cancel) handle.cancel();
    if (ownerGone) owner.reset();
    clock->advance(advance);
    queue->runPending();
    EXPECT_EQ(runs, expected) << advance << cancel << ownerGone;
  }
}

}  // namespace
}  // namespace oxelo
