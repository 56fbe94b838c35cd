#include "live/CameraFocusSquare.h"

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"
#include "platform/dispatch/QueueCheck.h"

namespace oxelo {

std::shared_ptr<CameraFocusSquare> CameraFocusSquare::create(double x, double y) {
  auto square = std::shared_ptr<CameraFocusSquare>(new CameraFocusSquare());
  square->updatePoint(x, y, kTouchWidth);
  return square;
}

void CameraFocusSquare::setState(State state) {
  state_ = state;
  notice_.set(state);
}

void CameraFocusSquare::after(double seconds, std::function<void(CameraFocusSquare&)> step) {
  timer_.cancel();
  timer_ = postAfterWeak(*MainQueue::get(), seconds, weak_from_this(), std::move(step));
}

void CameraFocusSquare::updatePoint(double x, double y, double width) {
  OX_ASSERT_ON_MAIN_QUEUE();
  State next = state_;
  next.centerX = x;
  next.centerY = y;
  next.width = width;
  next.scale = 1.0;
  setState(next);
}

void CameraFocusSquare::animateFocusingAction(bool hideAtLast) {
  OX_ASSERT_ON_MAIN_QUEUE();
  hideAtLast_ = hideAtLast;
  State next = state_;
  next.phase = Phase::shrinking;
  next.alpha = 1.0;
  next.scale = 2.0;
  setState(next);
  // The shrink's end, finished or not, starts the blink; the blink's end
  // (animationDidStop:finished:) hides the square or dims it.
  after(kShrinkDuration, [](CameraFocusSquare& self) {
    State blink = self.state_;
    blink.phase = Phase::blinking;
    blink.scale = 1.0;
    blink.blinkRepeats = self.hideAtLast_ ? 1 : 3;
    self.setState(blink);
    self.after(kBlinkDuration * blink.blinkRepeats, [](CameraFocusSquare& self) {
      if (self.hideAtLast_) {
        self.after(0.5, [](CameraFocusSquare& self) { self.hide(); });
        return;
      }
      self.after(1.0, [](CameraFocusSquare& self) {
        State fade = self.state_;
        fade.phase = Phase::fading;
        self.setState(fade);
        self.after(kFadeDuration, [](CameraFocusSquare& self) {
          State dimmed = self.state_;
          dimmed.phase = Phase::dimmed;
          dimmed.alpha = kDimmedAlpha;
          self.setState(dimmed);
        });
      });
    });
  });
}

void CameraFocusSquare::showQuietly() {
  OX_ASSERT_ON_MAIN_QUEUE();
  timer_.cancel();
  State next = state_;
  next.phase = Phase::fading;
  next.alpha = 1.0;
  next.scale = 1.0;
  setState(next);
  // No completion step: the fade leaves the square at 0.4.
  after(kFadeDuration, [](CameraFocusSquare& self) {
    if (self.state_.phase != Phase::fading) return;
    State dimmed = self.state_;
    dimmed.phase = Phase::dimmed;
    dimmed.alpha = kDimmedAlpha;
    self.setState(dimmed);
  });
}

void CameraFocusSquare::hide() {
  OX_ASSERT_ON_MAIN_QUEUE();
  timer_.cancel();
  State next = state_;
  next.phase = Phase::hidden;
  setState(next);
}

}  // namespace oxelo
