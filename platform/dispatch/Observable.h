#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

// Ends an observation when it is destroyed or reset.
class Subscription {
 public:
  Subscription() = default;
  explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
  Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
  Subscription& operator=(Subscription&& other) noexcept {
    if (this != &other) {
      reset();
      cancel_ = std::exchange(other.cancel_, nullptr);
    }
    return *this;
  }
  ~Subscription() { reset(); }
  void reset() {
    if (cancel_) std::exchange(cancel_, nullptr)();
  }

 private:
  std::function<void()> cancel_;
};

// Where the observers of one list are called.
class Delivery {
 public:
  // On the notifying thread, before notify() returns.
  static Delivery onNotifyingThread() { return Delivery(Kind::notifyingThread, {}); }
  // In one task per notification posted to the main queue of the moment the
  // notification is made.
  static Delivery onMainQueue() { return Delivery(Kind::mainQueue, {}); }
  // In one task per notification posted to `queue`, held weakly: nothing is
  // delivered once the queue is gone.
  static Delivery on(const std::shared_ptr<Queue>& queue) { return Delivery(Kind::queue, queue); }

  bool isOnNotifyingThread() const { return kind_ == Kind::notifyingThread; }
  // The queue a notification is posted to now; null for the notifying
  // thread or a queue that is gone.
  std::shared_ptr<Queue> target() const {
    if (kind_ == Kind::mainQueue) return MainQueue::get();
    return queue_.lock();
  }

 private:
  enum class Kind { notifyingThread, mainQueue, queue };
  Delivery(Kind kind, std::weak_ptr<Queue> queue) : kind_(kind), queue_(std::move(queue)) {}
  Kind kind_;
  std::weak_ptr<Queue> queue_;
};

// The observers of one notification: the project's one change-notification
// facility (device notifications, the socket's isSending, the session's
// properties; Observable below is a value with one of these). The Qt layer
// adapts it to signals at the edge.
//
// add() and notify() may be called on any thread. Each notification calls,
// in registration order, the observers registered when it is delivered; an
// observer removed before then (by its subscription, or by an earlier
// observer of the same notification) is not called. With a queue delivery,
// notify() posts one task, which holds the list weakly: a notification of a
// list that is gone by the time the task runs is dropped.
template <typename... Args>
class Observers {
 public:
  using Observer = std::function<void(const Args&...)>;

  explicit Observers(Delivery delivery = Delivery::onNotifyingThread())
      : delivery_(std::move(delivery)), state_(std::make_shared<State>()) {}
  Observers(const Observers&) = delete;
  Observers& operator=(const Observers&) = delete;

  // The observer is called until the subscription ends.
  [[nodiscard]] Subscription add(Observer observer) {
    std::lock_guard lock(state_->mutex);
    int id = state_->nextId++;
    state_->observers.emplace_back(id, std::make_shared<Observer>(std::move(observer)));
    std::weak_ptr<State> weak = state_;
    return Subscription([weak, id] {
      auto state = weak.lock();
      if (!state) return;
      std::lock_guard lock(state->mutex);
      std::erase_if(state->observers, [id](auto& entry) { return entry.first == id; });
    });
  }

  void notify(Args... args) { notifyWithStep(nullptr, std::move(args)...); }

  // Like notify(), but the delivery first runs `step` (when the list still
  // exists), even with no observer: the state change that goes with the
  // notification, so that an observer reads the state of its notification.
  void notifyWithStep(std::function<void()> step, Args... args) {
    if (delivery_.isOnNotifyingThread()) {
      deliver(*state_, step, args...);
      return;
    }
    auto queue = delivery_.target();
    if (!queue) return;
    queue->post([weak = std::weak_ptr<State>(state_), step = std::move(step),
                 args = std::make_tuple(std::move(args)...)] {
      auto state = weak.lock();
      if (!state) return;
      std::apply([&](const Args&... a) { deliver(*state, step, a...); }, args);
    });
  }

 private:
  struct State {
    bool isRegistered(int id) {
      std::lock_guard lock(mutex);
      for (auto& entry : observers)
        if (entry.first == id) return true;
      return false;
    }
    std::mutex mutex;
    int nextId = 1;
    std::vector<std::pair<int, std::shared_ptr<Observer>>> observers;  // under mutex
  };

  static void deliver(State& state, const std::function<void()>& step, const Args&... args) {
    if (step) step();
    std::vector<std::pair<int, std::shared_ptr<Observer>>> observers;
    {
      std::lock_guard lock(state.mutex);
      observers = state.observers;
    }
    for (auto& [id, observer] : observers) {
      if (!state.isRegistered(id)) continue;  // removed by an earlier observer
      (*observer)(args...);
    }
  }

  const Delivery delivery_;
  std::shared_ptr<State> state_;
};

// A property whose changes can be observed. set() may be called on any
// thread; it stores the value and, only when the value changed, notifies the
// observers with the old and the new value, delivered as the list's Delivery
// says (by default on the setter's thread, after the value is stored).
template <typename T>
class Observable {
 public:
  using Observer = typename Observers<T, T>::Observer;  // (oldValue, newValue)

  explicit Observable(T initial = T{}, Delivery delivery = Delivery::onNotifyingThread())
      : value_(std::move(initial)), observers_(std::move(delivery)) {}

  T get() const {
    std::lock_guard lock(mutex_);
    return value_;
  }

  void set(T value) {
    T old;
    {
      std::lock_guard lock(mutex_);
      if (value_ == value) return;
      old = std::exchange(value_, value);
    }
    observers_.notify(std::move(old), std::move(value));
  }

  // Stores the value and tells no observer: for the few places whose rules
  // reset a property "directly, with no change notification".
  void setSilently(T value) {
    std::lock_guard lock(mutex_);
    value_ = std::move(value);
  }

  [[nodiscard]] Subscription observe(Observer observer) {
    return observers_.add(std::move(observer));
  }

 private:
  mutable std::mutex mutex_;
  T value_;  // under mutex_
  Observers<T, T> observers_;
};

// The batched form of the same facility, for a producer that notifies one
// consumer from a thread of its own (the DNS-SD client's poll thread): values
// pushed from any thread reach the consumer on the main queue, in the order
// they were pushed, and values pushed before a delivery runs arrive together
// in one batch, so that the consumer can tell that more are coming. close()
// and the deliveries run on the main queue; nothing is delivered once close()
// has run. Tasks already posted hold the inbox, not its consumer.
template <typename T>
class MainQueueInbox : public std::enable_shared_from_this<MainQueueInbox<T>> {
 public:
  static std::shared_ptr<MainQueueInbox> create(std::function<void(std::vector<T>)> deliver) {
    return std::shared_ptr<MainQueueInbox>(new MainQueueInbox(std::move(deliver)));
  }

  void push(T value) {
    {
      std::lock_guard lock(mutex_);
      pending_.push_back(std::move(value));
      if (posted_) return;
      posted_ = true;
    }
    MainQueue::post([self = this->shared_from_this()] { self->deliverPending(); });
  }

  void close() { closed_ = true; }

 private:
  explicit MainQueueInbox(std::function<void(std::vector<T>)> deliver)
      : deliver_(std::move(deliver)) {}

  void deliverPending() {
    std::vector<T> batch;
    {
      std::lock_guard lock(mutex_);
      batch.swap(pending_);
      posted_ = false;
    }
    if (!closed_ && !batch.empty()) deliver_(std::move(batch));
  }

  std::function<void(std::vector<T>)> deliver_;
  std::mutex mutex_;
  std::vector<T> pending_;  // under mutex_
  bool posted_ = false;     // under mutex_: a delivery task is on its way
  bool closed_ = false;     // main queue only
};

}  // namespace oxelo
