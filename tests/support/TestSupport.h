#pragma once

#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/dispatch/Clock.h"
#include "platform/dispatch/MainQueue.h"
#include "platform/log/Log.h"

namespace oxelo::test {

// A fresh directory under the system's temporary directory, removed at the end.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "oxelo-test-XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Collects log lines for the lifetime of the object.
class LogCapture {
 public:
  LogCapture() {
    setLogSink([this](const std::string& line) {
      std::lock_guard lock(mutex_);
      lines_.push_back(line);
    });
  }
  ~LogCapture() { setLogSink(nullptr); }
  std::vector<std::string> lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  bool contains(const std::string& text) const { return count(text) > 0; }
  size_t count(const std::string& text) const {
    std::lock_guard lock(mutex_);
    size_t n = 0;
    for (auto& l : lines_) n += l.find(text) != std::string::npos;
    return n;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

// A manual clock and a driven main queue for one test, undone afterwards: advance() moves time,
// drain() runs the queue. The test's thread drives the main queue, so it counts as being on it
// and may call main-queue operations directly.
class ManualMain {
 public:
  ManualMain() : clock_(std::make_shared<ManualClock>()) {
    setDefaultClock(clock_);
    main_ = Queue::createDriven("main", clock_);
    MainQueue::set(main_);
    driving_ = std::make_unique<Queue::DrivingScope>(*main_);
  }
  ~ManualMain() {
    main_->runPending();
    driving_.reset();
    MainQueue::set(nullptr);
    setDefaultClock(nullptr);
  }
  ManualClock& clock() { return *clock_; }
  std::shared_ptr<ManualClock> clockPtr() { return clock_; }
  Queue& main() { return *main_; }
  size_t drain() { return main_->runPending(); }
  // Moves time on in small steps, running what falls due at each.
  void advance(double seconds, double step = 0.05) {
    const double target = clock_->now() + seconds;
    drain();
    while (clock_->now() < target) {
      clock_->set(std::min(clock_->now() + step, target));
      drain();
    }
  }

 private:
  std::shared_ptr<ManualClock> clock_;
  std::shared_ptr<Queue> main_;
  std::unique_ptr<Queue::DrivingScope> driving_;
};

// Waits in 1 ms steps until `done` holds or `seconds` of real time pass, running `step` before
// each look; returns done(). For real sockets and threads: the system's delays use the manual
// clock.
inline bool waitUntil(const std::function<bool()>& done, double seconds = 5.0,
                      const std::function<void()>& step = {}) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (;;) {
    if (step) step();
    if (done()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}
// The same, running the driven `queue` (or the test's main queue) meanwhile.
inline bool pumpUntil(Queue& queue, const std::function<bool()>& done, double seconds = 5.0) {
  return waitUntil(done, seconds, [&] { queue.runPending(); });
}
inline bool pumpUntil(ManualMain& env, const std::function<bool()>& done, double seconds = 5.0) {
  return pumpUntil(env.main(), done, seconds);
}
// Runs a driven queue for `seconds` of real time.
inline void pumpFor(Queue& queue, double seconds) {
  pumpUntil(
      queue, [] { return false; }, seconds);
}

}  // namespace oxelo::test
