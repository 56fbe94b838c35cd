#include "platform/dispatch/PostWeak.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

struct Owner {
  int runs = 0;
  std::unique_ptr<int> received;
};

class PostWeakTest : public testing::Test {
 protected:
  std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  std::shared_ptr<Queue> queue = Queue::createDriven("target", clock);
  std::shared_ptr<Owner> owner = std::make_shared<Owner>();
};

TEST_F(PostWeakTest, RunsWithTheOwnerOnItsQueueAndMovesTheDataIn) {
  auto data = std::make_unique<int>(42);
  int* address = data.get();
  bool onQueue = false;
  postWeak(*queue, std::weak_ptr<Owner>(owner),
           [this, &onQueue, data = std::move(data)](Owner& o) mutable {
             onQueue = queue->isCurrent();
             ++o.runs;
             o.received = std::move(data);
           });
  EXPECT_EQ(owner.use_count(), 1) << "a waiting task must not keep its owner alive";
  EXPECT_EQ(owner->runs, 0);
  EXPECT_EQ(queue->runPending(), 1u);
  EXPECT_TRUE(onQueue);
  EXPECT_EQ(owner->runs, 1);
  ASSERT_TRUE(owner->received);
  EXPECT_EQ(owner->received.get(), address) << "moved, not copied";
}

TEST_F(PostWeakTest, TaskOfAnOwnerThatIsGoneIsDropped) {
  bool ran = false;
  postWeak(*queue, std::weak_ptr<Owner>(owner), [&](Owner&) { ran = true; });
  owner.reset();
  queue->runPending();
  EXPECT_FALSE(ran);
}

struct AfterCase {
  const char* name;
  double advance;
  bool cancel;
  bool ownerGone;
  int runs;
};

class PostAfterWeakTest : public PostWeakTest, public testing::WithParamInterface<AfterCase> {};

TEST_P(PostAfterWeakTest, RunsOnceTheQueuesClockReachesTheDelay) {
  const auto& c = GetParam();
  auto alive = owner;  // what the case leaves of the owner
  int runs = 0;
  auto handle = postAfterWeak(*queue, 2.0, std::weak_ptr<Owner>(owner), [&](Owner&) { ++runs; });
  if (c.cancel) handle.cancel();
  if (c.ownerGone) {
    owner.reset();
    alive.reset();
  }
  clock->advance(c.advance);
  queue->runPending();
  EXPECT_EQ(runs, c.runs);
}

INSTANTIATE_TEST_SUITE_P(Delays, PostAfterWeakTest,
                         testing::Values(AfterCase("BeforeTheDelay", 1.99, false, false, 0),
                                         AfterCase("AtTheDelay", 2.0, false, false, 1),
                                         AfterCase("Cancelled", 3.0, true, false, 0),
                                         AfterCase("OwnerGone", 3.0, false, true, 0)),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace oxelo
