#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace oxelo {

// One picture in CPU memory, 32-bit BGRA (bytes B, G, R, A in that order),
// rows `stride` bytes apart. The filter chain's output node fills it by
// read-back on the video processing queue and hands it to the session, which
// gives it to the video encoder on the same queue. Shared: it lives until the
// last holder lets go, and a pooled one then returns its memory to its pool.
// Not synchronised: one queue writes it, later readers only read.
class PixelBuffer {
 public:
  // A buffer of its own (not pooled), rows padded to kRowAlignment bytes.
  static std::shared_ptr<PixelBuffer> create(int width, int height);

  int width() const { return width_; }
  int height() const { return height_; }
  size_t stride() const { return stride_; }  // bytes from one row to the next
  uint8_t* data() { return storage_->data(); }
  const uint8_t* data() const { return storage_->data(); }
  uint8_t* row(int y) { return data() + static_cast<size_t>(y) * stride_; }
  const uint8_t* row(int y) const { return data() + static_cast<size_t>(y) * stride_; }

  // Seconds on the media clock at which the picture was captured.
  double presentationTime() const { return presentationTime_; }
  void setPresentationTime(double seconds) { presentationTime_ = seconds; }

  static constexpr size_t kRowAlignment = 64;
  static size_t strideForWidth(int width);

  // Internal: built by create() and by PixelBufferPool.
  PixelBuffer(int width, int height, size_t stride, std::unique_ptr<std::vector<uint8_t>> storage);
  std::unique_ptr<std::vector<uint8_t>> takeStorage() { return std::move(storage_); }

 private:
  int width_;
  int height_;
  size_t stride_;
  std::unique_ptr<std::vector<uint8_t>> storage_;
  double presentationTime_ = 0;
};

// Buffers of one size whose memory is reused: a buffer handed out by
// makeBuffer() gives its memory back when its last holder lets go, also after
// the pool itself is gone (the memory is then freed). At most `capacity`
// idle blocks are kept. Any thread.
class PixelBufferPool : public std::enable_shared_from_this<PixelBufferPool> {
 public:
  static std::shared_ptr<PixelBufferPool> create(int width, int height, size_t capacity = 3);

  int width() const { return width_; }
  int height() const { return height_; }
  // A buffer with undefined content.
  std::shared_ptr<PixelBuffer> makeBuffer();
  size_t idleCount() const;

 private:
  PixelBufferPool(int width, int height, size_t capacity);
  void giveBack(std::unique_ptr<std::vector<uint8_t>> storage);

  const int width_;
  const int height_;
  const size_t capacity_;
  mutable std::mutex mutex_;
  std::vector<std::unique_ptr<std::vector<uint8_t>>> idle_;  // guarded by mutex_
};

}  // namespace oxelo
