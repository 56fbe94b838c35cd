#include <gtest/gtest.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>

#include "filters/MemoryPressureWatcher.h"

namespace oxelo {
namespace {

TEST(MemoryPressureWatcherTest, EachSignalRunsTheCallbackOnceAndStoppingEndsTheThread) {
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  std::mutex mutex;
  std::condition_variable changed;
  int signals = 0;
  auto watcher = MemoryPressureWatcher::watch(pipeFds[0], [&] {
    std::lock_guard lock(mutex);
    ++signals;
    changed.notify_all();
  });
  for (int expected = 1; expected <= 2; ++expected) {
    ASSERT_EQ(write(pipeFds[1], "x", 1), 1);
    std::unique_lock lock(mutex);
    // Waits for the watcher's thread, not for a delay of the system.
    ASSERT_TRUE(
        changed.wait_for(lock, std::chrono::seconds(30), [&] { return signals >= expected; }));
    EXPECT_EQ(signals, expected);
  }
  watcher.reset();
  close(pipeFds[1]);
}

}  // namespace
}  // namespace oxelo
