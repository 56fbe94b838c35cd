#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/defaults/UserDefaults.h"
#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

TEST(UserDefaultsConcurrencyTest, ConcurrentReadersWritersAndSynchronizeKeepEveryKey) {
  test::TempDir dir;
  UserDefaults d(dir.path());
  d.registerDefaults({{"videoFPS", 30}});
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 300; ++i) {
        d.setInteger("k" + std::to_string(t), i);
        EXPECT_EQ(d.integerForKey("videoFPS"), 30);
        if (i % 50 == 0) d.synchronize();
      }
    });
  }
  for (auto& th : threads) th.join();
  ASSERT_TRUE(d.synchronize());
  UserDefaults reread(dir.path());
  for (int t = 0; t < 4; ++t) EXPECT_EQ(reread.integerForKey("k" + std::to_string(t)), 299);
}

}  // namespace
}  // namespace oxelo
