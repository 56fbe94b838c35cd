#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

#include "platform/dispatch/Observable.h"

namespace oxelo {

// The platform's application states, by their numbers.
enum class ApplicationState { active = 0, inactive = 1, background = 2 };

// The application-wide life-cycle notifications.
enum class LifecycleEvent {
  willResignActive,     // UIApplicationWillResignActiveNotification
  didEnterBackground,   // UIApplicationDidEnterBackgroundNotification
  willEnterForeground,  // UIApplicationWillEnterForegroundNotification
  didBecomeActive,      // UIApplicationDidBecomeActiveNotification
};

// The application's life cycle. This class is the headless one: the program
// is active from the start and stays so until told otherwise; SIGUSR1 sends it
// to the background and SIGUSR2 brings it back (see handleSignal), so that
// what the program does in the background can be tried on a board. A display
// front end derives from it and reports its own state changes.
//
// Each notification is one main-queue task that first stores the state the
// event leads to (will-resign-active and will-enter-foreground: inactive;
// did-enter-background: background; did-become-active: active) and then
// calls the listeners, so a listener reads the state that goes with its
// event. applicationState() may be read on any thread.
class AppLifecycle {
 public:
  AppLifecycle() = default;
  virtual ~AppLifecycle() = default;
  AppLifecycle(const AppLifecycle&) = delete;
  AppLifecycle& operator=(const AppLifecycle&) = delete;

  // The process-wide life cycle: a headless one until setShared().
  static std::shared_ptr<AppLifecycle> shared();
  static void setShared(std::shared_ptr<AppLifecycle> lifecycle);

  // The hook for the program's signal thread (the one that takes signals with
  // sigwait): SIGUSR1 calls enterBackground() and SIGUSR2 enterForeground()
  // on the shared life cycle. Returns false for any other signal. Any
  // thread, but not from inside a signal handler.
  static bool handleSignal(int signal);

  // Any thread. Posts will-resign-active then did-enter-background, unless
  // the application is already on its way to the background or there.
  void enterBackground();
  // Any thread. Posts will-enter-foreground then did-become-active, only
  // when the application is on its way to the background or there.
  void enterForeground();

  ApplicationState applicationState() const { return state_->load(); }

  [[nodiscard]] Subscription addListener(std::function<void(LifecycleEvent)> listener) {
    return listeners_.add(std::move(listener));
  }

 protected:
  // Any thread: posts one notification with its state step, as described
  // above, and follows where the application is heading.
  void postEvent(LifecycleEvent event);

 private:
  void postStep(LifecycleEvent event);  // any thread, headingMutex_ held

  // Shared with the posted notifications, which store the state.
  std::shared_ptr<std::atomic<ApplicationState>> state_ =
      std::make_shared<std::atomic<ApplicationState>>(ApplicationState::active);
  std::mutex headingMutex_;
  bool headingToBackground_ = false;  // guarded by headingMutex_
  Observers<LifecycleEvent> listeners_{Delivery::onMainQueue()};
};

}  // namespace oxelo
