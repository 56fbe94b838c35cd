#pragma once

#include <functional>
#include <memory>

#include "platform/dispatch/Queue.h"

namespace oxelo {

// A repeating timer on one queue (NSTimer with repeats): the action runs on
// `queue` every `interval` seconds of the queue's clock until invalidate() or
// destruction. fire() runs the action once at once (on the calling thread,
// which must be the queue's) without changing the schedule. Created,
// fired and invalidated on the queue it runs on.
class RepeatingTimer {
 public:
  RepeatingTimer(std::shared_ptr<Queue> queue, double interval, std::function<void()> action);
  ~RepeatingTimer();
  RepeatingTimer(const RepeatingTimer&) = delete;
  RepeatingTimer& operator=(const RepeatingTimer&) = delete;

  void fire();
  void invalidate();
  bool isValid() const;
  double interval() const { return interval_; }

  struct State;  // internal, shared with the pending tick

 private:
  void arm();

  std::shared_ptr<Queue> queue_;
  double interval_;
  std::shared_ptr<State> state_;
};

}  // namespace oxelo
