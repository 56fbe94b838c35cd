#pragma once

#include <condition_variable>
#include <mutex>

namespace oxelo {

// A counting semaphore in the manner of dispatch_semaphore: created with a
// value, wait() takes one permit, signal() returns one. A binary semaphore is
// one created with value 1 (a lock) or 0 (a signal). Any thread.
class Semaphore {
 public:
  explicit Semaphore(long value = 1) : value_(value) {}
  // Waits up to `seconds` (negative: forever) of real time for a permit.
  // Returns true when one was taken.
  bool wait(double seconds = -1.0);
  bool tryWait() { return wait(0.0); }
  void signal();

 private:
  std::mutex mutex_;
  std::condition_variable cv_;
  long value_;
};

}  // namespace oxelo
