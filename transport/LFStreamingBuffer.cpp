#include "transport/LFStreamingBuffer.h"

#include "platform/dispatch/MainQueue.h"
#include "platform/dispatch/PostWeak.h"

namespace oxelo {
namespace {

// Holds the buffer's semaphore for one scope.
class SemaphoreGuard {
 public:
  explicit SemaphoreGuard(Semaphore& s) : s_(s) { s_.wait(); }
  ~SemaphoreGuard() { s_.signal(); }
  SemaphoreGuard(const SemaphoreGuard&) = delete;
  SemaphoreGuard& operator=(const SemaphoreGuard&) = delete;

 private:
  Semaphore& s_;
};

}  // namespace

std::shared_ptr<LFStreamingBuffer> LFStreamingBuffer::create() {
  return std::shared_ptr<LFStreamingBuffer>(new LFStreamingBuffer());
}

void LFStreamingBuffer::setDelegate(std::weak_ptr<LFStreamingBufferDelegate> delegate) {
  std::lock_guard lock(delegateMutex_);
  delegate_ = std::move(delegate);
}

std::shared_ptr<LFStreamingBufferDelegate> LFStreamingBuffer::delegate() const {
  std::lock_guard lock(delegateMutex_);
  return delegate_.lock();
}

void LFStreamingBuffer::appendObject(std::shared_ptr<LFFrame> frame) {
  if (!frame) return;
  if (!startTimer_.exchange(true)) tick();
  SemaphoreGuard guard(lock_);
  list_.push_back(std::move(frame));
  count_.store(list_.size(), std::memory_order_relaxed);
}

std::shared_ptr<LFFrame> LFStreamingBuffer::popFirstObject() {
  SemaphoreGuard guard(lock_);
  if (list_.empty()) return nullptr;
  auto frame = std::move(list_.front());
  list_.pop_front();
  count_.store(list_.size(), std::memory_order_relaxed);
  return frame;
}

void LFStreamingBuffer::removeAllObject() {
  std::deque<std::shared_ptr<LFFrame>> dropped;
  {
    SemaphoreGuard guard(lock_);
    dropped.swap(list_);
    count_.store(0, std::memory_order_relaxed);
  }
  // The frames are released here, outside the lock.
}

std::vector<std::shared_ptr<LFFrame>> LFStreamingBuffer::list() const {
  SemaphoreGuard guard(lock_);
  return {list_.begin(), list_.end()};
}

BufferVerdict LFStreamingBuffer::currentBufferState(const std::vector<int64_t>& samples,
                                                    int64_t threshold) {
  int64_t previous = 0, rising = 0, falling = 0;
  for (int64_t sample : samples) {
    if (sample > previous) ++rising;
    if (sample < previous) ++falling;
    previous = sample;
  }
  if (rising >= threshold) return BufferVerdict::LowerBitrate;
  if (falling >= threshold) return BufferVerdict::RaiseBitrate;
  return BufferVerdict::NoChange;
}

void LFStreamingBuffer::tick() {
  currentInterval_ += kUpdateInterval;
  {
    SemaphoreGuard guard(lock_);
    thresholdList_.push_back(int64_t(list_.size()));
  }
  if (currentInterval_ >= kCallBackInterval) {
    BufferVerdict verdict = currentBufferState(thresholdList_);
    if (verdict != BufferVerdict::NoChange) {
      if (auto d = delegate()) d->streamingBufferBufferState(this, verdict);
    }
    currentInterval_ = 0;
    thresholdList_.clear();
  }
  scheduleTick();
}

void LFStreamingBuffer::scheduleTick() {
  postAfterWeak(*MainQueue::get(), double(kUpdateInterval), weak_from_this(),
                [](LFStreamingBuffer& self) { self.tick(); });
}

}  // namespace oxelo
