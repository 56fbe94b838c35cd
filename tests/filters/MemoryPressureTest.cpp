#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <semaphore>

#include "filters/MemoryPressureWatcher.h"

namespace oxelo {
namespace {

TEST(MemoryPressureWatcherTest, EachSignalRunsTheCallbackOnceAndStoppingEndsTheThread) {
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  std::counting_semaphore<> signalled(0);
  auto watcher = MemoryPressureWatcher::watch(pipeFds[0], [&] { signalled.release(); });
  for (int signal = 0; signal < 2; ++signal) {
    ASSERT_EQ(write(pipeFds[1], "x", 1), 1);
    // Waits for the watcher's thread, not for a delay of the system.
    ASSERT_TRUE(signalled.try_acquire_for(std::chrono::seconds(30)));
    EXPECT_FALSE(signalled.try_acquire()) << "one signal ran the callback twice";
  }
  watcher.reset();
  close(pipeFds[1]);
}

}  // namespace
}  // namespace oxelo
