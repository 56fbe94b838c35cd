#include "live/IdleTimer.h"

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/QueueCheck.h"

namespace oxelo {

std::shared_ptr<IdleTimer> IdleTimer::create() {
  return std::shared_ptr<IdleTimer>(new IdleTimer());
}

IdleTimer::~IdleTimer() { timer_.cancel(); }

void IdleTimer::sendEvent(bool touchBegan) {
  OX_ASSERT_ON_MAIN_QUEUE();
  if (!started_ || touchBegan) resetIdleTimer();
}

void IdleTimer::resetIdleTimer() {
  started_ = true;
  timer_.cancel();
  timer_ = postAfterWeak(*MainQueue::get(), kTimeout, weak_from_this(),
                         [](IdleTimer& self) { self.timeout_.notify(); });
}

}  // namespace oxelo
