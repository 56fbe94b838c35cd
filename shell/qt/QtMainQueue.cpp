#include "shell/qt/QtMainQueue.h"

#include <atomic>
#include <cmath>
#include <mutex>

namespace oxelo {

struct QtMainQueue::Link {
  std::mutex mutex;
  QtMainQueue* target = nullptr;  // guarded by mutex
  std::atomic<bool> wakePending{false};
};

QtMainQueue::QtMainQueue(std::shared_ptr<Queue> queue, QObject* parent)
    : QObject(parent),
      queue_(std::move(queue)),
      onQueue_(*queue_),
      link_(std::make_shared<Link>()) {
  link_->target = this;
  timer_.setSingleShot(true);
  timer_.setTimerType(Qt::PreciseTimer);
  connect(&timer_, &QTimer::timeout, this, [this] { drain(); });
  queue_->setWakeHandler([link = link_] {
    // Many wakes before the loop comes round make one call.
    if (link->wakePending.exchange(true)) return;
    std::lock_guard lock(link->mutex);
    if (!link->target) return;
    // Posting an event is safe from any thread; Qt drops the events of an
    // object that is destroyed before they are delivered.
    QMetaObject::invokeMethod(
        link->target, [target = link->target] { target->drain(); }, Qt::QueuedConnection);
  });
  // Whatever was posted before the loop took over runs on its first round.
  link_->wakePending = true;
  QMetaObject::invokeMethod(
      this, [this] { drain(); }, Qt::QueuedConnection);
}

QtMainQueue::~QtMainQueue() {
  queue_->setWakeHandler(nullptr);
  std::lock_guard lock(link_->mutex);
  link_->target = nullptr;
}

void QtMainQueue::drain() {
  link_->wakePending = false;
  queue_->runPending();
  const double deadline = queue_->nextDeadline();
  if (deadline < 0) {
    timer_.stop();
    return;
  }
  const double wait = deadline - queue_->clock().now();
  // Rounded up: a timer that fires a little early would find nothing due.
  timer_.start(wait <= 0 ? 0 : static_cast<int>(std::ceil(wait * 1000.0)));
}

}  // namespace oxelo
