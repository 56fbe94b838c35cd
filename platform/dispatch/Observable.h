#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

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

// A property whose changes can be observed: the one change-notification
// facility of the project (the socket's isSending, the session's forwarded
// properties). set() may be called on any thread; observers run on the
// setter's thread, after the value is stored, only when the value changed.
// An observer that must run on another queue posts there itself.
template <typename T>
class Observable {
 public:
  using Observer = std::function<void(const T& oldValue, const T& newValue)>;

  explicit Observable(T initial = T{}) : state_(std::make_shared<State>(std::move(initial))) {}

  T get() const {
    std::lock_guard lock(state_->mutex);
    return state_->value;
  }

  void set(T value) {
    std::vector<std::shared_ptr<Observer>> observers;
    T old;
    {
      std::lock_guard lock(state_->mutex);
      if (state_->value == value) return;
      old = std::exchange(state_->value, value);
      for (auto& [id, o] : state_->observers) observers.push_back(o);
    }
    for (auto& o : observers) (*o)(old, value);
  }

  // Stores the value and tells no observer: for the few places whose rules
  // reset a property "directly, with no change notification".
  void setSilently(T value) {
    std::lock_guard lock(state_->mutex);
    state_->value = std::move(value);
  }
  [[nodiscard]] Subscription observe(Observer observer) {
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

 private:
  struct State {
    explicit State(T v) : value(std::move(v)) {}
    mutable std::mutex mutex;
    T value;
    int nextId = 1;
    std::vector<std::pair<int, std::shared_ptr<Observer>>> observers;
  };
  std::shared_ptr<State> state_;
};

}  // namespace oxelo
