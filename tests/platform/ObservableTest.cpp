#include "platform/dispatch/Observable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

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
  // Added after the notification but before its delivery: a queued
  // notification reaches it too.
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

TEST(ObserversLifetimeTest, QueuedNotificationsOfAListThatIsGoneAreDropped) {
  test::ManualMain env;
  int calls = 0;
  bool stepped = false;
  auto list = std::make_unique<Observers<int>>(Delivery::onMainQueue());
  auto sub = list->add([&](int) { ++calls; });
  list->notifyWithStep([&] { stepped = true; }, 1);
  list.reset();
  env.drain();
  EXPECT_EQ(calls, 0);
  EXPECT_FALSE(stepped);
  sub.reset();  // outliving the list is harmless
}

TEST(ObserversLifetimeTest, NothingIsDeliveredToAQueueThatIsGone) {
  int calls = 0;
  auto queue = Queue::createDriven("gone");
  Observers<> list(Delivery::on(queue));
  auto sub = list.add([&] { ++calls; });
  list.notify();
  queue.reset();
  list.notify();  // no queue to post to
  EXPECT_EQ(calls, 0);
}

}  // namespace
}  // namespace oxelo
