#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "platform/dispatch/Queue.h"

namespace oxelo {

// Posting on behalf of an object that the task must not outlive: the one way
// a task crosses to another queue. The task holds its owner weakly, takes a
// strong reference only while it runs, and is dropped when the owner is gone
// by then. `fn` is called as fn(Owner&) at most once; its captures are moved
// into the queued task and may be moved out of again by `fn` (it may be a
// mutable lambda holding move-only data). Any thread.
//
//   postWeak(*MainQueue::get(), weak_from_this(), [status](OXLiveSession& self) {
//     self.setState(status);
//   });
template <typename Owner, typename Fn>
void postWeak(Queue& queue, std::weak_ptr<Owner> owner, Fn fn);

// The task that postWeak queues, for the executors that are not a Queue (the
// socket worker). A Task must be copyable, so a move-only `fn` travels in a
// shared box; the task is not meant to be copied once queued.
template <typename Owner, typename Fn>
Task weakTask(std::weak_ptr<Owner> owner, Fn fn) {
  if constexpr (std::is_copy_constructible_v<Fn>) {
    return [owner = std::move(owner), fn = std::move(fn)]() mutable {
      if (auto self = owner.lock()) fn(*self);
    };
  } else {
    return [owner = std::move(owner), box = std::make_shared<Fn>(std::move(fn))] {
      if (auto self = owner.lock()) (*box)(*self);
    };
  }
}

template <typename Owner, typename Fn>
void postWeak(Queue& queue, std::weak_ptr<Owner> owner, Fn fn) {
  queue.post(weakTask(std::move(owner), std::move(fn)));
}

// postWeak after `seconds` of the queue's clock; the handle cancels it.
template <typename Owner, typename Fn>
TimerHandle postAfterWeak(Queue& queue, double seconds, std::weak_ptr<Owner> owner, Fn fn) {
  return queue.postAfter(seconds, weakTask(std::move(owner), std::move(fn)));
}

}  // namespace oxelo
