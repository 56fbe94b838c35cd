#include <gtest/gtest.h>
#include <signal.h>

#include <utility>
#include <vector>

#include "platform/device/AppLifecycle.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using Event = LifecycleEvent;
using State = ApplicationState;

struct Seen {
  Event event;
  State state;
  bool operator==(const Seen&) const = default;
};
const std::vector<Seen> kToBackground = {{Event::willResignActive, State::inactive},
                                         {Event::didEnterBackground, State::background}};
const std::vector<Seen> kToForeground = {{Event::willEnterForeground, State::inactive},
                                         {Event::didBecomeActive, State::active}};

class LifecycleTest : public testing::Test {
 protected:
  void SetUp() override {
    AppLifecycle::setShared(lifecycle);
    subscription = lifecycle->addListener([this](Event event) {
      EXPECT_TRUE(MainQueue::isCurrent());
      seen.push_back({event, lifecycle->applicationState()});
    });
  }
  void TearDown() override { AppLifecycle::setShared(nullptr); }

  std::vector<Seen> drained() {
    env.drain();
    return std::exchange(seen, {});
  }

  test::ManualMain env;
  std::shared_ptr<AppLifecycle> lifecycle = std::make_shared<AppLifecycle>();
  Subscription subscription;
  std::vector<Seen> seen;
};

// Each listener reads the state that goes with its event; repeated or
// untimely signals change nothing.
TEST_F(LifecycleTest, SignalsSendTheApplicationToTheBackgroundAndBack) {
  EXPECT_EQ(lifecycle->applicationState(), State::active);
  EXPECT_TRUE(AppLifecycle::handleSignal(SIGUSR2));  // already active
  EXPECT_TRUE(AppLifecycle::handleSignal(SIGUSR1));
  EXPECT_TRUE(AppLifecycle::handleSignal(SIGUSR1));  // before the first pair has even run
  EXPECT_TRUE(seen.empty());                         // delivered on the main queue only
  EXPECT_EQ(lifecycle->applicationState(), State::active);
  EXPECT_EQ(drained(), kToBackground);
  EXPECT_FALSE(AppLifecycle::handleSignal(SIGHUP));
  EXPECT_TRUE(drained().empty());
  EXPECT_TRUE(AppLifecycle::handleSignal(SIGUSR2));
  EXPECT_EQ(drained(), kToForeground);
}

TEST_F(LifecycleTest, BackAndForthBeforeTheQueueRunsKeepsTheOrder) {
  lifecycle->enterBackground();
  lifecycle->enterForeground();
  auto both = kToBackground;
  both.insert(both.end(), kToForeground.begin(), kToForeground.end());
  EXPECT_EQ(drained(), both);
}

TEST(LifecycleLifetimeTest, NotificationsOfALifecycleThatIsGoneAreDropped) {
  test::ManualMain env;
  int calls = 0;
  auto lifecycle = std::make_shared<AppLifecycle>();
  auto subscription = lifecycle->addListener([&](LifecycleEvent) { ++calls; });
  lifecycle->enterBackground();
  lifecycle.reset();
  env.drain();
  EXPECT_EQ(calls, 0);
}

}  // namespace
}  // namespace oxelo
