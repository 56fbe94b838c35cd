#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/dispatch/MainQueue.h"

namespace oxelo {

// Hands values from any thread to one consumer on the main queue, in the
// order they were pushed. Values pushed before a delivery task runs arrive
// together in one batch. push() may be called from any thread; close() and
// the deliveries run on the main queue, and nothing is delivered once close()
// has run. Tasks already posted hold the inbox, not its consumer.
template <typename T>
class MainQueueInbox : public std::enable_shared_from_this<MainQueueInbox<T>> {
 public:
  static std::shared_ptr<MainQueueInbox> create(std::function<void(std::vector<T>)> deliver) {
    return std::shared_ptr<MainQueueInbox>(new MainQueueInbox(std::move(deliver)));
  }

  void push(T value) {
    {
      std::lock_guard lock(mutex_);
      pending_.push_back(std::move(value));
      if (posted_) return;
      posted_ = true;
    }
    MainQueue::post([self = this->shared_from_this()] { self->deliverPending(); });
  }

  void close() { closed_ = true; }

 private:
  explicit MainQueueInbox(std::function<void(std::vector<T>)> deliver)
      : deliver_(std::move(deliver)) {}

  void deliverPending() {
    std::vector<T> batch;
    {
      std::lock_guard lock(mutex_);
      batch.swap(pending_);
      posted_ = false;
    }
    if (!closed_ && !batch.empty()) deliver_(std::move(batch));
  }

  std::function<void(std::vector<T>)> deliver_;
  std::mutex mutex_;
  std::vector<T> pending_;  // under mutex_
  bool posted_ = false;     // under mutex_: a delivery task is on its way
  bool closed_ = false;     // main queue only
};

}  // namespace oxelo
