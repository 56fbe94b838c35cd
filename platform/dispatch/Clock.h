#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace oxelo {

// The time source of every timer and of the media clock: monotonic seconds as
// a double. Production code uses SystemClock; tests install a ManualClock and
// advance it by hand instead of sleeping for the system's own delays.
class Clock {
 public:
  virtual ~Clock() = default;
  // Monotonic seconds since an arbitrary origin. Any thread.
  virtual double now() const = 0;
  // Registers a function called (on the advancing thread) whenever the time
  // jumps, so that queues waiting for a deadline look again. The system clock
  // never jumps and ignores it. Returns an id for removeJumpListener.
  virtual int addJumpListener(std::function<void()> listener);
  virtual void removeJumpListener(int id);
};

// std::chrono::steady_clock.
class SystemClock final : public Clock {
 public:
  double now() const override;
};

// Time moves only when a test says so. Any thread.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(double start = 1000.0) : now_(start) {}
  double now() const override;
  void advance(double seconds);
  void set(double seconds);
  int addJumpListener(std::function<void()> listener) override;
  void removeJumpListener(int id) override;

 private:
  void notify();
  mutable std::mutex mutex_;
  double now_;
  int nextId_ = 1;
  std::vector<std::pair<int, std::function<void()>>> listeners_;
};

// The process-wide clock that timers and the media clock read. Defaults to a
// SystemClock; tests replace it before they create queues.
std::shared_ptr<Clock> defaultClock();
void setDefaultClock(std::shared_ptr<Clock> clock);

// CACurrentMediaTime: monotonic seconds of the default clock.
double mediaTime();

}  // namespace oxelo
