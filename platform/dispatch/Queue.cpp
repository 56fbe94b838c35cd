#include "platform/dispatch/Queue.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <map>
#include <mutex>
#include <thread>

namespace oxelo {

struct Queue::Core {
  struct Timer {
    Task task;
    std::shared_ptr<TimerHandle::State> state;
  };

  explicit Core(std::shared_ptr<Clock> c) : clock(std::move(c)) {}

  void wake();
  bool takeReady(Task& out);  // with mutex held
  void runTask(Task& task);
  size_t runPending();
  void run();
  void stop();

  std::shared_ptr<Clock> clock;
  std::mutex mutex;
  std::condition_variable cv;
  std::deque<Task> tasks;
  std::multimap<std::pair<double, uint64_t>, Timer> timers;
  uint64_t timerSeq = 0;
  bool stopping = false;
  std::function<void()> wakeHandler;
  std::thread worker;
};

namespace {
thread_local const Queue::Core* tlsCurrent = nullptr;

// Marks the calling thread as running a queue for the scope, restoring the
// outer queue afterwards (runSync may nest one queue's task in another's).
class CurrentScope {
 public:
  explicit CurrentScope(const Queue::Core* core) : saved_(tlsCurrent) { tlsCurrent = core; }
  ~CurrentScope() { tlsCurrent = saved_; }

 private:
  const Queue::Core* saved_;
};
}  // namespace

void TimerHandle::cancel() {
  if (state_) state_->cancelled = true;
}

bool TimerHandle::isCancelled() const { return state_ && state_->cancelled; }

void Queue::Core::wake() {
  std::function<void()> handler;
  {
    std::lock_guard lock(mutex);
    handler = wakeHandler;
  }
  cv.notify_all();
  if (handler) handler();
}

bool Queue::Core::takeReady(Task& out) {
  if (!tasks.empty()) {
    out = std::move(tasks.front());
    tasks.pop_front();
    return true;
  }
  double now = clock->now();
  while (!timers.empty() && timers.begin()->first.first <= now) {
    auto node = timers.extract(timers.begin());
    auto state = node.mapped().state;
    if (state->cancelled) continue;
    out = [state, task = std::move(node.mapped().task)] {
      if (!state->cancelled) task();
    };
    return true;
  }
  return false;
}

void Queue::Core::runTask(Task& task) {
  CurrentScope scope(this);
  task();
  task = nullptr;  // release the captures while still marked as on the queue
}

size_t Queue::Core::runPending() {
  size_t count = 0;
  for (;;) {
    Task task;
    {
      std::lock_guard lock(mutex);
      if (stopping || !takeReady(task)) return count;
    }
    runTask(task);
    ++count;
  }
}

void Queue::Core::run() {
  std::unique_lock lock(mutex);
  while (!stopping) {
    Task task;
    if (takeReady(task)) {
      lock.unlock();
      runTask(task);
      lock.lock();
      continue;
    }
    if (timers.empty()) {
      cv.wait(lock);
      continue;
    }
    double wait = timers.begin()->first.first - clock->now();
    // A manual clock wakes us through its jump listener; the cap keeps a
    // clock without listeners from stalling us.
    cv.wait_for(lock, std::chrono::duration<double>(std::min(wait, 0.25)));
  }
}

void Queue::Core::stop() {
  std::deque<Task> dropped;
  std::multimap<std::pair<double, uint64_t>, Timer> droppedTimers;
  {
    std::lock_guard lock(mutex);
    stopping = true;
    dropped.swap(tasks);
    droppedTimers.swap(timers);
  }
  cv.notify_all();
  // `dropped` is released here, outside the lock: captures may own queues.
}

Queue::Queue(std::string label, std::shared_ptr<Clock> clock)
    : label_(std::move(label)), clock_(std::move(clock)), core_(std::make_shared<Core>(clock_)) {
  std::weak_ptr<Core> weak = core_;
  jumpListener_ = clock_->addJumpListener([weak] {
    if (auto core = weak.lock()) core->wake();
  });
}

std::shared_ptr<Queue> Queue::create(std::string label, std::shared_ptr<Clock> clock) {
  std::shared_ptr<Queue> queue(new Queue(std::move(label), std::move(clock)));
  queue->core_->worker = std::thread([core = queue->core_] { core->run(); });
  return queue;
}

std::shared_ptr<Queue> Queue::createDriven(std::string label, std::shared_ptr<Clock> clock) {
  return std::shared_ptr<Queue>(new Queue(std::move(label), std::move(clock)));
}

Queue::~Queue() {
  clock_->removeJumpListener(jumpListener_);
  core_->stop();
  auto& worker = core_->worker;
  if (!worker.joinable()) return;
  if (worker.get_id() == std::this_thread::get_id()) {
    worker.detach();  // destroyed by one of our own tasks; the thread keeps the core alive
  } else {
    worker.join();
  }
}

void Queue::post(Task task) {
  // The task may release the last reference to this queue before wake()
  // returns; the local reference keeps the core alive until then.
  auto core = core_;
  {
    std::lock_guard lock(core->mutex);
    if (core->stopping) return;
    core->tasks.push_back(std::move(task));
  }
  core->wake();
}

TimerHandle Queue::postAfter(double seconds, Task task) {
  auto state = std::make_shared<TimerHandle::State>();
  double deadline = clock_->now() + (seconds > 0 ? seconds : 0);
  auto core = core_;  // as in post()
  {
    std::lock_guard lock(core->mutex);
    if (core->stopping) return TimerHandle(state);
    core->timers.emplace(std::make_pair(deadline, core->timerSeq++),
                         Core::Timer{std::move(task), state});
  }
  core->wake();
  return TimerHandle(state);
}

void Queue::runSync(const Task& task) {
  if (isCurrent()) {
    task();
    return;
  }
  // Fires when the posted task is gone: after it ran, or when a stop dropped
  // it unrun; either way the caller stops waiting.
  struct Done {
    std::promise<void> promise;
    ~Done() { promise.set_value(); }
  };
  auto done = std::make_shared<Done>();
  auto finished = done->promise.get_future();
  {
    auto core = core_;
    std::lock_guard lock(core->mutex);
    if (core->stopping) return;
    core->tasks.push_back([&task, done = std::move(done)] { task(); });
  }
  core_->wake();
  finished.wait();
}

Queue::DrivingScope::DrivingScope(const Queue& queue) : saved_(tlsCurrent) {
  tlsCurrent = queue.core_.get();
}

Queue::DrivingScope::~DrivingScope() { tlsCurrent = static_cast<const Queue::Core*>(saved_); }

bool Queue::isCurrent() const { return tlsCurrent == core_.get(); }

size_t Queue::runPending() { return core_->runPending(); }

void Queue::run() { core_->run(); }

void Queue::stop() { core_->stop(); }

double Queue::nextDeadline() const {
  std::lock_guard lock(core_->mutex);
  return core_->timers.empty() ? -1.0 : core_->timers.begin()->first.first;
}

void Queue::setWakeHandler(std::function<void()> handler) {
  std::lock_guard lock(core_->mutex);
  core_->wakeHandler = std::move(handler);
}

}  // namespace oxelo
