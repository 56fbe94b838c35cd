#pragma once

#include <QObject>
#include <QTimer>
#include <memory>

#include "platform/dispatch/Queue.h"

namespace oxelo {

// The main queue's GUI backend: runs a driven Queue on the Qt event loop of
// the thread this object lives on (the GUI thread). A post from any thread
// wakes the loop with one queued call; delayed tasks wait on a single-shot
// timer armed for the queue's next deadline, read on the queue's own clock,
// so a test clock that jumps wakes the loop as well. While it lives, the GUI
// thread counts as being on the queue, so that the GUI's own calls (QML's
// presses, the window's events) may use what runs on the main queue. Create,
// use and destroy it on the GUI thread; the queue itself may be used from
// anywhere.
class QtMainQueue final : public QObject {
 public:
  explicit QtMainQueue(std::shared_ptr<Queue> queue, QObject* parent = nullptr);
  ~QtMainQueue() override;
  QtMainQueue(const QtMainQueue&) = delete;
  QtMainQueue& operator=(const QtMainQueue&) = delete;

  const std::shared_ptr<Queue>& queue() const { return queue_; }

 private:
  struct Link;  // the wake handler's way back to this object, cut at destruction
  // GUI thread: runs what is ready, then waits for the next deadline.
  void drain();

  std::shared_ptr<Queue> queue_;
  Queue::DrivingScope onQueue_;
  std::shared_ptr<Link> link_;
  QTimer timer_;
};

}  // namespace oxelo
