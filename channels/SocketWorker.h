#pragma once

#include <functional>
#include <memory>
#include <mutex>

namespace oxelo {

// The socket worker: the one Asio I/O thread that runs the inside of every
// GCDAsyncSocket and GCDAsyncUdpSocket. Any thread.
namespace socketworker {

// Queues `task` on the worker, after everything queued before it.
void post(std::function<void()> task);
// Runs `task` on the worker and waits for it; inline when called there.
void runSync(const std::function<void()>& task);
bool isCurrent();

}  // namespace socketworker

// A socket's delegate, weakly held, changed from any thread. An expired
// delegate counts as none.
template <typename Delegate>
class DelegateSlot {
 public:
  void set(std::weak_ptr<Delegate> delegate) {
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
  }
  std::weak_ptr<Delegate> weak() const {
    std::lock_guard lock(mutex_);
    return delegate_;
  }
  std::shared_ptr<Delegate> get() const {
    std::lock_guard lock(mutex_);
    return delegate_.lock();
  }
  bool has() const { return get() != nullptr; }

 private:
  mutable std::mutex mutex_;
  std::weak_ptr<Delegate> delegate_;
};

}  // namespace oxelo
