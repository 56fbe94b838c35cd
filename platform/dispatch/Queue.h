#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "platform/dispatch/Clock.h"

namespace oxelo {

using Task = std::function<void()>;

// A pending delayed task. cancel() may be called from any thread; a task that
// is cancelled before it starts never runs.
class TimerHandle {
 public:
  TimerHandle() = default;
  void cancel();
  bool isCancelled() const;
  bool isValid() const { return state_ != nullptr; }

  // Internal: shared between the handle and the queue's timer entry.
  struct State {
    std::atomic<bool> cancelled{false};
  };
  explicit TimerHandle(std::shared_ptr<State> state) : state_(std::move(state)) {}

 private:
  std::shared_ptr<State> state_;
};

// A serial queue: tasks run one at a time, in the order they were posted.
// Delayed tasks run when the queue's clock reaches their deadline, ordered by
// deadline and then by posting order.
//
// Two ways to drive one:
//  - threaded: create() starts a worker thread that runs tasks as they come;
//  - driven: createDriven() runs nothing by itself. Its owner calls
//    runPending() (tests, a host event loop) or run() (the headless main run
//    loop) on a thread of its choice; that thread is then "on" the queue.
//
// All operations may be called from any thread.
class Queue : public std::enable_shared_from_this<Queue> {
 public:
  static std::shared_ptr<Queue> create(std::string label,
                                       std::shared_ptr<Clock> clock = defaultClock());
  static std::shared_ptr<Queue> createDriven(std::string label,
                                             std::shared_ptr<Clock> clock = defaultClock());
  ~Queue();
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  const std::string& label() const { return label_; }
  Clock& clock() const { return *clock_; }

  void post(Task task);
  // Runs `task` once `seconds` have passed on the queue's clock.
  TimerHandle postAfter(double seconds, Task task);
  // Runs `task` on the queue and waits for it; runs it inline when the caller
  // is already on this queue. Returns at once, without running it, on a
  // stopped queue, and as soon as a stop drops it. Must not be called for a
  // driven queue that no thread drives.
  void runSync(const Task& task);
  // True while the calling thread is running a task of this queue.
  bool isCurrent() const;

  // Driven queues: runs every task that is ready now, including due timers
  // and tasks that those tasks post, and returns how many ran.
  size_t runPending();
  // Driven queues: runs tasks on the calling thread until stop().
  void run();
  // Ends run() (driven) or the worker thread (threaded) after the task in
  // progress; tasks still queued are dropped.
  void stop();
  // The deadline of the earliest timer, or a negative number when none.
  double nextDeadline() const;
  // Driven queues under a host event loop: called on any thread whenever a
  // task or timer is added, so the loop can schedule runPending().
  void setWakeHandler(std::function<void()> handler);

  // Marks the calling thread as being on this queue for the scope's life:
  // for the thread that drives a driven queue and calls its operations
  // directly (tests on their main queue). Restores what was current before.
  class DrivingScope {
   public:
    explicit DrivingScope(const Queue& queue);
    ~DrivingScope();
    DrivingScope(const DrivingScope&) = delete;
    DrivingScope& operator=(const DrivingScope&) = delete;

   private:
    const void* saved_;
  };

  struct Core;  // internal

 private:
  Queue(std::string label, std::shared_ptr<Clock> clock);

  std::string label_;
  std::shared_ptr<Clock> clock_;
  std::shared_ptr<Core> core_;  // shared with the worker thread, which may outlive us
  int jumpListener_ = 0;
};

}  // namespace oxelo
