#include "platform/dispatch/RepeatingTimer.h"

#include "platform/dispatch/PostWeak.h"

namespace oxelo {

struct RepeatingTimer::State {
  std::function<void()> action;
  TimerHandle pending;
  bool valid = true;
};

RepeatingTimer::RepeatingTimer(std::shared_ptr<Queue> queue, double interval,
                               std::function<void()> action)
    : queue_(std::move(queue)), interval_(interval), state_(std::make_shared<State>()) {
  state_->action = std::move(action);
  arm();
}

RepeatingTimer::~RepeatingTimer() { invalidate(); }

namespace {
// Each tick re-arms from its own run, as a run-loop timer does. The pending
// task holds the queue only weakly: a queue must not keep itself alive
// through a task waiting in its own timer list.
void scheduleTick(std::weak_ptr<RepeatingTimer::State> weak, std::weak_ptr<Queue> weakQueue,
                  double interval) {
  auto state = weak.lock();
  auto queue = weakQueue.lock();
  if (!state || !state->valid || !queue) return;
  state->pending =
      postAfterWeak(*queue, interval, weak, [weak, weakQueue, interval](RepeatingTimer::State& s) {
        if (!s.valid) return;
        scheduleTick(weak, weakQueue, interval);
        auto action = s.action;  // the action may invalidate or destroy the timer
        action();
      });
}
}  // namespace

void RepeatingTimer::arm() { scheduleTick(state_, queue_, interval_); }

void RepeatingTimer::fire() {
  if (!state_->valid) return;
  auto action = state_->action;
  action();
}

void RepeatingTimer::invalidate() {
  if (!state_->valid) return;
  state_->valid = false;
  state_->pending.cancel();
}

bool RepeatingTimer::isValid() const { return state_->valid; }

}  // namespace oxelo
