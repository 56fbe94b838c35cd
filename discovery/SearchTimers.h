#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "platform/dispatch/Queue.h"

namespace oxelo {

// The delayed steps of the search, on the main queue: the calls that the
// hand-over to the live screen cancels all at once, the settle of a burst of
// host announcements, and the attempt at the last host. The tasks are the
// owner's own closures and decide themselves what they hold (weakly).
// Main queue, all of it.
class SearchTimers {
 public:
  SearchTimers() = default;
  SearchTimers(const SearchTimers&) = delete;
  SearchTimers& operator=(const SearchTimers&) = delete;
  ~SearchTimers() { shutdown(); }

  // Runs `task` after `delay` seconds unless cancelAll() comes first.
  void after(double delay, std::function<void()> task);
  // Restarts the settle: `task` runs `delay` seconds after the last call,
  // once. cancelAll() cancels it too.
  void settle(double delay, std::function<void()> task);
  // (Re)schedules the attempt at the last host, which only
  // cancelLastHostAttempt() and shutdown() cancel.
  void scheduleLastHostAttempt(double delay, std::function<void()> task);
  void cancelLastHostAttempt();
  // Every after() and the settle.
  void cancelAll();
  // cancelAll() and the attempt at the last host.
  void shutdown();

 private:
  std::vector<TimerHandle> requests_;
  TimerHandle settle_;
  std::optional<TimerHandle> lastHostAttempt_;
};

}  // namespace oxelo
