#pragma once

#include <cstdint>
#include <functional>

#include "platform/dispatch/Observable.h"
#include "platform/dispatch/Queue.h"

namespace oxelo {

// The square that marks the focus point, as states with their timing; the
// Qt layer draws it (clear, border 1.0 orange, no touches) and runs each
// animation the state names over its duration. The steps that follow an
// animation run on the main queue after that duration, on the injectable
// clock, so tests drive them by hand.
//
// Main queue, all of it. Held by shared pointer (create()).
class CameraFocusSquare final : public std::enable_shared_from_this<CameraFocusSquare> {
 public:
  static constexpr double kTouchWidth = 75.0;
  static constexpr double kSubjectAreaWidth = 120.0;
  static constexpr double kShrinkDuration = 0.2;  // scale 2.0 to 1.0
  static constexpr double kBlinkDuration = 0.4;   // border to white and back, per repeat
  static constexpr double kFadeDuration = 0.5;    // to alpha 0.4
  static constexpr double kDimmedAlpha = 0.4;

  enum class Phase {
    hidden,
    full,       // alpha 1.0, still
    shrinking,  // scale 2.0 to identity over kShrinkDuration
    blinking,   // border blink, `blinkRepeats` times kBlinkDuration
    fading,     // to alpha 0.4 over kFadeDuration
    dimmed,     // alpha 0.4, stays until the next focus
  };

  struct State {
    Phase phase = Phase::hidden;
    double centerX = 0, centerY = 0, width = kTouchWidth;  // in the live view's coordinates
    double alpha = 1.0;
    double scale = 1.0;  // the transform at the start of the phase
    int blinkRepeats = 3;
    bool operator==(const State&) const = default;
  };

  // initWithTouchPoint: at width 75.
  static std::shared_ptr<CameraFocusSquare> create(double x, double y);

  const State& state() const { return state_; }
  bool hidden() const { return state_.phase == Phase::hidden; }
  double alpha() const { return state_.alpha; }
  Observable<State>& stateProperty() { return notice_; }

  // updatePoint:withSquareWidth: new frame, identity transform.
  void updatePoint(double x, double y, double width);
  // animateFocusingAction: shrink, blink once (hideAtLast) or three times,
  // then hide 0.5 s later (hideAtLast) or fade to 0.4 1.0 s later.
  void animateFocusingAction(bool hideAtLast);
  // The quiet form for an exposure point: alpha 1.0, shown, fade to 0.4.
  void showQuietly();
  // Hidden now; pending steps are dropped.
  void hide();

 private:
  CameraFocusSquare() = default;
  void setState(State state);
  void after(double seconds, std::function<void(CameraFocusSquare&)> step);

  State state_;
  Observable<State> notice_;
  TimerHandle timer_;
  bool hideAtLast_ = false;
};

}  // namespace oxelo
