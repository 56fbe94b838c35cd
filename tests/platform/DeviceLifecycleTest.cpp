#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <vector>

#include "platform/device/AppLifecycle.h"
#include "tests/support/FakeLifecycle.h"
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

  // Sends `sig` to this thread and takes it with sigwait, as the program's
  // signal thread does, then hands it to the hook.
  bool deliver(int sig) {
    sigset_t set, old;
    sigemptyset(&set);
    sigaddset(&set, sig);
    pthread_sigmask(SIG_BLOCK, &set, &old);
    raise(sig);
    int taken = 0;
    sigwait(&set, &taken);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    EXPECT_EQ(taken, sig);
    return AppLifecycle::handleSignal(taken);
  }

  test::ManualMain env;
  std::shared_ptr<FakeLifecycle> lifecycle = std::make_shared<FakeLifecycle>();
  Subscription subscription;
  std::vector<Seen> seen;
};

TEST_F(LifecycleTest, SignalsSendTheApplicationToTheBackgroundAndBack) {
  EXPECT_EQ(lifecycle->applicationState(), State::active);
  EXPECT_TRUE(deliver(SIGUSR1));
  EXPECT_TRUE(seen.empty());  // delivered on the main queue only
  EXPECT_EQ(lifecycle->applicationState(), State::active);
  env.drain();
  EXPECT_EQ(seen, (std::vector<Seen>{{Event::willResignActive, State::inactive},
                                     {Event::didEnterBackground, State::background}}));
  seen.clear();
  EXPECT_TRUE(deliver(SIGUSR2));
  env.drain();
  EXPECT_EQ(seen, (std::vector<Seen>{{Event::willEnterForeground, State::inactive},
                                     {Event::didBecomeActive, State::active}}));
}

TEST_F(LifecycleTest, RepeatedOrUntimelySignalsChangeNothing) {
  EXPECT_TRUE(deliver(SIGUSR2));  // already active
  env.drain();
  EXPECT_TRUE(seen.empty());
  EXPECT_TRUE(deliver(SIGUSR1));
  EXPECT_TRUE(deliver(SIGUSR1));  // before the first pair has even run
  env.drain();
  EXPECT_EQ(seen.size(), 2u);
  EXPECT_FALSE(AppLifecycle::handleSignal(SIGHUP));
  env.drain();
  EXPECT_EQ(seen.size(), 2u);
  EXPECT_EQ(lifecycle->applicationState(), State::background);
}

TEST_F(LifecycleTest, BackAndForthBeforeTheQueueRunsKeepsTheOrder) {
  lifecycle->enterBackground();
  lifecycle->enterForeground();
  env.drain();
  EXPECT_EQ(seen, (std::vector<Seen>{{Event::willResignActive, State::inactive},
                                     {Event::didEnterBackground, State::background},
                                     {Event::willEnterForeground, State::inactive},
                                     {Event::didBecomeActive, State::active}}));
}

TEST_F(LifecycleTest, FakeStepsThroughInactiveWithoutTheBackground) {
  lifecycle->sendEvent(Event::willResignActive);
  env.drain();
  EXPECT_EQ(lifecycle->applicationState(), State::inactive);
  lifecycle->enterForeground();  // never reached the background: nothing to come back from
  lifecycle->sendEvent(Event::didBecomeActive);
  env.drain();
  EXPECT_EQ(seen, (std::vector<Seen>{{Event::willResignActive, State::inactive},
                                     {Event::didBecomeActive, State::active}}));
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
