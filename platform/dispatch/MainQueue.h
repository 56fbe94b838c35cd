#pragma once

#include <memory>

#include "platform/dispatch/Queue.h"

namespace oxelo {

// The main queue: screens, discovery, handshake, every delegate call of the
// sockets and of the session, delayed steps. A driven Queue: headless, the
// program's main thread runs it with run(); tests install their own and drain
// it with runPending(); the GUI's event loop drives it through the wake
// handler.
class MainQueue {
 public:
  static std::shared_ptr<Queue> get();
  // Replaces the main queue (tests; the GUI at start-up).
  static void set(std::shared_ptr<Queue> queue);
  static void post(Task task) { get()->post(std::move(task)); }
  static TimerHandle postAfter(double seconds, Task task) {
    return get()->postAfter(seconds, std::move(task));
  }
  static bool isCurrent() { return get()->isCurrent(); }
};

}  // namespace oxelo
