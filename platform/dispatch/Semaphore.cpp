#include "platform/dispatch/Semaphore.h"

#include <chrono>

namespace oxelo {

bool Semaphore::wait(double seconds) {
  std::unique_lock lock(mutex_);
  auto ready = [this] { return value_ > 0; };
  if (seconds < 0) {
    cv_.wait(lock, ready);
  } else if (!cv_.wait_for(lock, std::chrono::duration<double>(seconds), ready)) {
    return false;
  }
  --value_;
  return true;
}

void Semaphore::signal() {
  {
    std::lock_guard lock(mutex_);
    ++value_;
  }
  cv_.notify_one();
}

}  // namespace oxelo
