#pragma once

#include <functional>
#include <memory>
#include <string>

#include "live/LiveServices.h"

namespace oxelo {

// The feedback and animation helpers of the live screen's controls. The plain
// classes say what should happen; the Qt layer makes it happen where the
// platform has the means (a feedback motor, an animation engine).

// Selection feedback, one tick per change of a picked value
// (UISelectionFeedbackGenerator). The default does nothing, which is right
// only where no feedback service runs.
class SelectionFeedback {
 public:
  virtual ~SelectionFeedback() = default;
  virtual void prepare() {}
  virtual void selectionChanged() {}
};

// The spring the panels slide with: 0.5 s, no delay, damping 1.0, initial
// velocity 1.0.
struct SpringAnimation {
  double duration = 0.5;
  double delay = 0.0;
  double damping = 1.0;
  double velocity = 1.0;
};

// The pulse of a button's opacity: 1.0 to 0.0 and back, 0.3 s each way, once,
// ease in and out, removed under its key 1.0 s after it began.
struct PulseAnimation {
  std::string key = "animateOpacity";
  double from = 1.0, to = 0.0;
  double duration = 0.3;
  int repeatCount = 1;
  bool autoreverses = true;
  double removeAfter = 1.0;
};

// Runs an animation towards values the caller has already set on its model:
// the view animates its drawing from the old values to the new. `completion`
// gets the finished flag. The default has no animation engine and completes
// at once, finished.
class Animator {
 public:
  virtual ~Animator() = default;
  virtual void animate(const SpringAnimation& /*spring*/, std::function<void(bool)> completion) {
    if (completion) completion(true);
  }
};

// The class operations of the helper that the controls use: impacts through
// the Haptics service (prepare and fire are one step there), none tolerated.
struct OXHelper {
  static void lightVibrate(Haptics* haptics) {
    if (haptics) haptics->lightVibrate();
  }
  static void mediumVibrate(Haptics* haptics) {
    if (haptics) haptics->mediumVibrate();
  }
  static void heavyVibrate(Haptics* haptics) {
    if (haptics) haptics->heavyVibrate();
  }
};

}  // namespace oxelo
