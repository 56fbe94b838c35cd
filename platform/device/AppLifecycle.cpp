#include "platform/device/AppLifecycle.h"

#include <signal.h>

namespace oxelo {

namespace {
std::mutex sharedMutex;
std::shared_ptr<AppLifecycle>& sharedSlot() {
  static std::shared_ptr<AppLifecycle> lifecycle;
  return lifecycle;
}

ApplicationState stateAfter(LifecycleEvent event) {
  switch (event) {
    case LifecycleEvent::willResignActive:
    case LifecycleEvent::willEnterForeground:
      return ApplicationState::inactive;
    case LifecycleEvent::didEnterBackground:
      return ApplicationState::background;
    case LifecycleEvent::didBecomeActive:
      return ApplicationState::active;
  }
  return ApplicationState::active;
}
}  // namespace

std::shared_ptr<AppLifecycle> AppLifecycle::shared() {
  std::lock_guard lock(sharedMutex);
  if (!sharedSlot()) sharedSlot() = std::make_shared<AppLifecycle>();
  return sharedSlot();
}

void AppLifecycle::setShared(std::shared_ptr<AppLifecycle> lifecycle) {
  std::lock_guard lock(sharedMutex);
  sharedSlot() = std::move(lifecycle);
}

bool AppLifecycle::handleSignal(int signal) {
  if (signal == SIGUSR1) {
    shared()->enterBackground();
    return true;
  }
  if (signal == SIGUSR2) {
    shared()->enterForeground();
    return true;
  }
  return false;
}

void AppLifecycle::enterBackground() {
  std::lock_guard lock(headingMutex_);
  if (headingToBackground_) return;
  headingToBackground_ = true;
  // Posted under the lock, so that a concurrent enterForeground() queues
  // its pair behind this one.
  postStep(LifecycleEvent::willResignActive);
  postStep(LifecycleEvent::didEnterBackground);
}

void AppLifecycle::enterForeground() {
  std::lock_guard lock(headingMutex_);
  if (!headingToBackground_) return;
  headingToBackground_ = false;
  postStep(LifecycleEvent::willEnterForeground);
  postStep(LifecycleEvent::didBecomeActive);
}

void AppLifecycle::postEvent(LifecycleEvent event) {
  std::lock_guard lock(headingMutex_);
  if (event == LifecycleEvent::didEnterBackground) headingToBackground_ = true;
  if (event == LifecycleEvent::willEnterForeground || event == LifecycleEvent::didBecomeActive)
    headingToBackground_ = false;
  postStep(event);
}

void AppLifecycle::postStep(LifecycleEvent event) {
  std::weak_ptr<std::atomic<ApplicationState>> weak = state_;
  ApplicationState next = stateAfter(event);
  listeners_.notifyWithStep(
      [weak, next] {
        if (auto state = weak.lock()) state->store(next);
      },
      event);
}

}  // namespace oxelo
