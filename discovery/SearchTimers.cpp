#include "discovery/SearchTimers.h"

#include <algorithm>

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/QueueCheck.h"

namespace oxelo {

void SearchTimers::after(double delay, std::function<void()> task) {
  OX_ASSERT_ON_MAIN_QUEUE();
  std::erase_if(requests_, [](const TimerHandle& h) { return h.isCancelled(); });
  requests_.push_back(MainQueue::postAfter(delay, std::move(task)));
}

void SearchTimers::settle(double delay, std::function<void()> task) {
  OX_ASSERT_ON_MAIN_QUEUE();
  settle_.cancel();
  settle_ = MainQueue::postAfter(delay, std::move(task));
}

void SearchTimers::scheduleLastHostAttempt(double delay, std::function<void()> task) {
  OX_ASSERT_ON_MAIN_QUEUE();
  cancelLastHostAttempt();
  lastHostAttempt_ = MainQueue::postAfter(delay, std::move(task));
}

void SearchTimers::cancelLastHostAttempt() {
  if (lastHostAttempt_) lastHostAttempt_->cancel();
  lastHostAttempt_.reset();
}

void SearchTimers::cancelAll() {
  for (auto& h : requests_) h.cancel();
  requests_.clear();
  settle_.cancel();
}

void SearchTimers::shutdown() {
  cancelAll();
  cancelLastHostAttempt();
}

}  // namespace oxelo
