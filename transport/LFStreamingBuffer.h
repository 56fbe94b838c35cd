#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "media/LFFrame.h"
#include "platform/dispatch/Semaphore.h"
#include "transport/StreamTypes.h"

namespace oxelo {

class LFStreamingBuffer;

// Told when the length of the buffer's list shows a clear trend. Called on
// the main queue (or, for a first evaluation, on the thread of the first
// append), never with the buffer's lock held.
class LFStreamingBufferDelegate {
 public:
  virtual ~LFStreamingBufferDelegate() = default;
  // Optional; only verdicts LowerBitrate and RaiseBitrate are reported.
  virtual void streamingBufferBufferState(LFStreamingBuffer* /*buffer*/, BufferVerdict /*state*/) {}
};

// The first-in, first-out list of coded frames between the live session and
// the socket's send passes, and a slow sampler of its length. The list has
// no bound: an append never refuses and never drops; which frames to drop is
// decided when they are popped. Every `updateInterval` seconds of the main
// queue's clock the length is sampled; every `callBackInterval` samples the
// trend is judged and a clear one reported to the delegate.
//
// Owned by the stream socket, by shared_ptr (the sampling timer holds only a
// weak reference and ends with the buffer). appendObject() may be called
// from any thread (encoder threads); popFirstObject() and removeAllObject()
// from the send queue; the sampler runs on the main queue after its first
// step, which runs inside the first append. A binary semaphore guards the
// list, held for one list operation or one sample at a time.
class LFStreamingBuffer : public std::enable_shared_from_this<LFStreamingBuffer> {
 public:
  static constexpr int64_t kUpdateInterval = 1;    // seconds between samples
  static constexpr int64_t kCallBackInterval = 5;  // seconds between verdicts

  static std::shared_ptr<LFStreamingBuffer> create();
  LFStreamingBuffer(const LFStreamingBuffer&) = delete;
  LFStreamingBuffer& operator=(const LFStreamingBuffer&) = delete;

  // The delegate is held weakly. Any thread.
  void setDelegate(std::weak_ptr<LFStreamingBufferDelegate> delegate);
  std::shared_ptr<LFStreamingBufferDelegate> delegate() const;

  // Appends at the end; a null frame is ignored. The first frame starts the
  // sampler, whose first sample (taken before the frame goes in) is then
  // normally 0.
  void appendObject(std::shared_ptr<LFFrame> frame);
  // Removes and returns the oldest frame; null when the list is empty.
  std::shared_ptr<LFFrame> popFirstObject();
  // Empties the list. The sampler and its samples carry on.
  void removeAllObject();
  // The length of the list, read without the lock (the send pass uses it to
  // see whether there is work and for its statistics).
  size_t listCount() const { return count_.load(std::memory_order_relaxed); }
  // A copy of the list, taken under the lock.
  std::vector<std::shared_ptr<LFFrame>> list() const;

  // The verdict over a cycle's samples in order: count rises and falls
  // against a previous value that starts at 0; `threshold` rises give
  // LowerBitrate, else `threshold` falls RaiseBitrate, else NoChange.
  static BufferVerdict currentBufferState(const std::vector<int64_t>& samples,
                                          int64_t threshold = kCallBackInterval);

 private:
  LFStreamingBuffer() = default;
  void tick();
  void scheduleTick();

  mutable Semaphore lock_{1};
  std::deque<std::shared_ptr<LFFrame>> list_;  // under lock_
  std::atomic<size_t> count_{0};               // list_.size(), written under lock_
  std::atomic<bool> startTimer_{false};

  mutable std::mutex delegateMutex_;
  std::weak_ptr<LFStreamingBufferDelegate> delegate_;

  // Touched only by tick(); ticks never overlap (the first runs before the
  // second is posted).
  std::vector<int64_t> thresholdList_;
  int64_t currentInterval_ = 0;
};

}  // namespace oxelo
