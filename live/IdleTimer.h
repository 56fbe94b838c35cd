#pragma once

#include "platform/dispatch/Observable.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

// "AppTimeOut": told once when 15.0 seconds have passed without a touch
// beginning, and not again until a touch has begun and a further 15.0
// seconds have passed. Moving or ending touches do not count. The first
// event of any kind starts the timer when none runs yet.
//
// Main queue, all of it; the timer is a delayed task on the main queue, on
// the injectable clock.
class IdleTimer final : public std::enable_shared_from_this<IdleTimer> {
 public:
  static constexpr double kTimeout = 15.0;

  static std::shared_ptr<IdleTimer> create();
  ~IdleTimer();

  // sendEvent: every event the application receives; `touchBegan` when it
  // holds a touch in its began phase.
  void sendEvent(bool touchBegan);
  // The notification; observers run on the main queue.
  [[nodiscard]] Subscription addListener(std::function<void()> listener) {
    return timeout_.add([listener = std::move(listener)] { listener(); });
  }

 private:
  IdleTimer() = default;
  void resetIdleTimer();

  TimerHandle timer_;
  bool started_ = false;
  Observers<> timeout_;
};

}  // namespace oxelo
