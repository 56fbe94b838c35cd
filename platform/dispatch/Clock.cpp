#include "platform/dispatch/Clock.h"

#include <algorithm>
#include <chrono>

namespace oxelo {

int Clock::addJumpListener(std::function<void()>) { return 0; }
void Clock::removeJumpListener(int) {}

double SystemClock::now() const {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

double ManualClock::now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

void ManualClock::advance(double seconds) {
  {
    std::lock_guard lock(mutex_);
    now_ += seconds;
  }
  notify();
}

void ManualClock::set(double seconds) {
  {
    std::lock_guard lock(mutex_);
    now_ = seconds;
  }
  notify();
}

int ManualClock::addJumpListener(std::function<void()> listener) {
  std::lock_guard lock(mutex_);
  int id = nextId_++;
  listeners_.emplace_back(id, std::move(listener));
  return id;
}

void ManualClock::removeJumpListener(int id) {
  std::lock_guard lock(mutex_);
  std::erase_if(listeners_, [id](auto& entry) { return entry.first == id; });
}

void ManualClock::notify() {
  std::vector<std::function<void()>> listeners;
  {
    std::lock_guard lock(mutex_);
    for (auto& [id, l] : listeners_) listeners.push_back(l);
  }
  for (auto& l : listeners) l();
}

namespace {
std::mutex& clockMutex() {
  static std::mutex mutex;
  return mutex;
}
std::shared_ptr<Clock>& clockSlot() {
  static std::shared_ptr<Clock> clock = std::make_shared<SystemClock>();
  return clock;
}
}  // namespace

std::shared_ptr<Clock> defaultClock() {
  std::lock_guard lock(clockMutex());
  return clockSlot();
}

void setDefaultClock(std::shared_ptr<Clock> clock) {
  std::lock_guard lock(clockMutex());
  clockSlot() = clock ? std::move(clock) : std::make_shared<SystemClock>();
}

double mediaTime() { return defaultClock()->now(); }

}  // namespace oxelo
