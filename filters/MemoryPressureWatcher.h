#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace oxelo {

// The system's low-memory signal on Linux: a pressure-stall trigger on
// /proc/pressure/memory (tasks stalled on memory for 150 ms within 2 s).
// Each signal runs `onPressure` on the watcher's own thread. Where the kernel
// offers no such trigger to this process there is no signal at all.
class MemoryPressureWatcher {
 public:
  // Null, with `whyNot` set, where the trigger cannot be had.
  static std::unique_ptr<MemoryPressureWatcher> start(std::function<void()> onPressure,
                                                      std::string* whyNot);
  // Watches `fd` (taken over) for POLLPRI or POLLIN instead: for tests.
  static std::unique_ptr<MemoryPressureWatcher> watch(int fd, std::function<void()> onPressure);
  // Stops the thread and waits for it; any thread but the watcher's.
  ~MemoryPressureWatcher();

 private:
  MemoryPressureWatcher(int fd, int stopFd, std::function<void()> onPressure);
  void run();

  int fd_;
  int stopFd_;  // an eventfd that ends the thread
  std::function<void()> onPressure_;
  std::thread thread_;
};

}  // namespace oxelo
