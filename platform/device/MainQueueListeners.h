#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/Observable.h"

namespace oxelo {

// The listeners of one device notification (reachability, battery, life
// cycle). post() may be called on any thread; it posts one task to the main
// queue that calls, in registration order, the listeners registered when the
// task runs. A listener removed before then is not called; a notification
// posted by an object that is gone by then is dropped.
template <typename... Args>
class MainQueueListeners {
 public:
  using Listener = std::function<void(Args...)>;

  MainQueueListeners() : state_(std::make_shared<State>()) {}
  MainQueueListeners(const MainQueueListeners&) = delete;
  MainQueueListeners& operator=(const MainQueueListeners&) = delete;

  // Any thread. The listener runs on the main queue until the subscription ends.
  [[nodiscard]] Subscription add(Listener listener) {
    std::lock_guard lock(state_->mutex);
    int id = state_->nextId++;
    state_->listeners.emplace_back(id, std::make_shared<Listener>(std::move(listener)));
    std::weak_ptr<State> weak = state_;
    return Subscription([weak, id] {
      auto state = weak.lock();
      if (!state) return;
      std::lock_guard lock(state->mutex);
      std::erase_if(state->listeners, [id](auto& entry) { return entry.first == id; });
    });
  }

  // Any thread.
  void post(Args... args) { postWithStep(nullptr, std::move(args)...); }

  // Any thread. Like post(), but the task first runs `step` (when the
  // listeners still exist): the state change that goes with the notification.
  void postWithStep(std::function<void()> step, Args... args) {
    std::weak_ptr<State> weak = state_;
    MainQueue::post([weak, step = std::move(step), ... args = std::move(args)] {
      auto state = weak.lock();
      if (!state) return;
      if (step) step();
      std::vector<std::pair<int, std::shared_ptr<Listener>>> listeners;
      {
        std::lock_guard lock(state->mutex);
        listeners = state->listeners;
      }
      for (auto& [id, listener] : listeners) {
        if (!state->isRegistered(id)) continue;  // removed by an earlier listener
        (*listener)(args...);
      }
    });
  }

 private:
  struct State {
    bool isRegistered(int id) {
      std::lock_guard lock(mutex);
      for (auto& entry : listeners)
        if (entry.first == id) return true;
      return false;
    }
    std::mutex mutex;
    int nextId = 1;
    std::vector<std::pair<int, std::shared_ptr<Listener>>> listeners;
  };
  std::shared_ptr<State> state_;
};

}  // namespace oxelo
