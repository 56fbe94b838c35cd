#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

// The socket worker: the one Asio I/O thread that runs the inside of every
// GCDAsyncSocket and GCDAsyncUdpSocket. Every task for it goes through here.
// Any thread.
namespace socketworker {

// Queues `task` on the worker, after everything queued before it.
void post(std::function<void()> task);
// Runs `task` on the worker and waits for it; inline when called there.
void runSync(const std::function<void()>& task);
bool isCurrent();

// postWeak for the worker: fn(Owner&) runs there only if the owner still
// lives.
template <typename Owner, typename Fn>
void postWeak(std::weak_ptr<Owner> owner, Fn fn) {
  post(weakTask(std::move(owner), std::move(fn)));
}

// The queue on which sockets count their time-outs down on `clock`, so that
// a test's manual clock drives them: one per clock, shared by the sockets
// that hold it, gone with the last of them. Its tasks only post to the worker.
std::shared_ptr<Queue> timerQueue(const std::shared_ptr<Clock>& clock);

// postWeak for the worker once `seconds` have passed on `timers`' clock. The
// handle cancels it until it has been passed on to the worker; the task
// itself checks that it is still wanted.
template <typename Owner, typename Fn>
TimerHandle postAfterWeak(Queue& timers, double seconds, std::weak_ptr<Owner> owner, Fn fn) {
  return timers.postAfter(seconds,
                          [task = weakTask(std::move(owner), std::move(fn))] { post(task); });
}

}  // namespace socketworker

// A socket's delegate, weakly held, changed from any thread. An expired
// delegate counts as none.
template <typename Delegate>
class DelegateSlot {
 public:
  void set(std::weak_ptr<Delegate> delegate) {
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
  }
  std::weak_ptr<Delegate> weak() const {
    std::lock_guard lock(mutex_);
    return delegate_;
  }
  std::shared_ptr<Delegate> get() const {
    std::lock_guard lock(mutex_);
    return delegate_.lock();
  }
  bool has() const { return get() != nullptr; }

 private:
  mutable std::mutex mutex_;
  std::weak_ptr<Delegate> delegate_;
};

}  // namespace oxelo
