#pragma once

#include "platform/device/AppLifecycle.h"

namespace oxelo {

// A life cycle that a test steps through one notification at a time, also
// into states the headless program never takes (inactive without going to
// the background). Any thread.
class FakeLifecycle final : public AppLifecycle {
 public:
  void sendEvent(LifecycleEvent event) { postEvent(event); }
};

}  // namespace oxelo
