#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <atomic>
#include <thread>
#include <vector>

#include "shell/qt/QtMainQueue.h"

namespace oxelo {
namespace {

// The GUI thread's loop drives the main queue: these run the loop by hand
// and look at what ran, and on which thread.
class QtMainQueueTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    static int argc = 1;
    static char name[] = "qt-main-queue-test";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance()) new QCoreApplication(argc, argv);
  }
  // Runs the loop until `done` or two seconds of real time.
  static bool spinUntil(const std::function<bool()>& done) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < 2000)
      QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return done();
  }
  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  std::shared_ptr<Queue> queue_ = Queue::createDriven("main", clock_);
};

TEST_F(QtMainQueueTest, TasksPostedFromAnyThreadRunInOrderOnTheLoopsThread) {
  EXPECT_FALSE(queue_->isCurrent());
  QtMainQueue driver(queue_);
  EXPECT_TRUE(queue_->isCurrent());  // the GUI thread's own calls are on the queue
  std::vector<int> ran;
  std::atomic<int> onQueue{0}, onGui{0};
  const auto gui = std::this_thread::get_id();
  queue_->post([&] { ran.push_back(0); });  // before the loop comes round
  std::thread([&] {
    EXPECT_FALSE(queue_->isCurrent());
    for (int i = 1; i <= 3; ++i)
      queue_->post([&, i] {
        ran.push_back(i);
        onQueue += queue_->isCurrent();
        onGui += std::this_thread::get_id() == gui;
      });
  }).join();
  ASSERT_TRUE(spinUntil([&] { return ran.size() == 4; }));
  EXPECT_EQ(ran, (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(onQueue, 3);
  EXPECT_EQ(onGui, 3);
}

TEST_F(QtMainQueueTest, DelayedTasksFollowTheQueuesClockAndCancelStopsThem) {
  QtMainQueue driver(queue_);
  std::vector<int> ran;
  queue_->postAfter(2.0, [&] { ran.push_back(2); });
  queue_->postAfter(1.0, [&] { ran.push_back(1); });
  auto cancelled = queue_->postAfter(1.5, [&] { ran.push_back(15); });
  cancelled.cancel();
  spinUntil([] { return false; });  // the loop turns; the clock stands still
  EXPECT_TRUE(ran.empty());
  clock_->advance(1.6);
  ASSERT_TRUE(spinUntil([&] { return ran.size() == 1; }));
  clock_->advance(0.3);
  spinUntil([&] { return ran.size() == 2; });
  EXPECT_EQ(ran, std::vector<int>{1});
  clock_->advance(0.1);
  ASSERT_TRUE(spinUntil([&] { return ran.size() == 2; }));
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

TEST_F(QtMainQueueTest, ATimerOnTheSystemClockFiresWithNoOtherWake) {
  auto queue = Queue::createDriven("main", std::make_shared<SystemClock>());
  QtMainQueue driver(queue);
  bool ran = false;
  queue->postAfter(0.02, [&] { ran = true; });
  EXPECT_TRUE(spinUntil([&] { return ran; }));
}

TEST_F(QtMainQueueTest, NothingRunsAfterTheDriverIsGoneOrTheQueueStopped) {
  bool ran = false;
  {
    QtMainQueue driver(queue_);
    queue_->post([&] { ran = true; });
  }
  spinUntil([] { return false; });
  EXPECT_FALSE(ran);
  QtMainQueue driver(queue_);
  queue_->stop();
  queue_->post([&] { ran = true; });
  spinUntil([] { return false; });
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace oxelo
