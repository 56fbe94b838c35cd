#include "media/PixelBuffer.h"

namespace oxelo {

namespace {

size_t byteCount(int width, int height) {
  return PixelBuffer::strideForWidth(width) * static_cast<size_t>(height > 0 ? height : 0);
}

}  // namespace

size_t PixelBuffer::strideForWidth(int width) {
  const size_t bytes = static_cast<size_t>(width > 0 ? width : 0) * 4;
  return (bytes + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
}

PixelBuffer::PixelBuffer(int width, int height, size_t stride,
                         std::unique_ptr<std::vector<uint8_t>> storage)
    : width_(width), height_(height), stride_(stride), storage_(std::move(storage)) {}

std::shared_ptr<PixelBuffer> PixelBuffer::create(int width, int height) {
  auto storage = std::make_unique<std::vector<uint8_t>>(byteCount(width, height));
  return std::make_shared<PixelBuffer>(width, height, strideForWidth(width), std::move(storage));
}

PixelBufferPool::PixelBufferPool(int width, int height, size_t capacity)
    : width_(width), height_(height), capacity_(capacity) {}

std::shared_ptr<PixelBufferPool> PixelBufferPool::create(int width, int height, size_t capacity) {
  return std::shared_ptr<PixelBufferPool>(new PixelBufferPool(width, height, capacity));
}

std::shared_ptr<PixelBuffer> PixelBufferPool::makeBuffer() {
  std::unique_ptr<std::vector<uint8_t>> storage;
  {
    std::lock_guard lock(mutex_);
    if (!idle_.empty()) {
      storage = std::move(idle_.back());
      idle_.pop_back();
    }
  }
  if (!storage) storage = std::make_unique<std::vector<uint8_t>>(byteCount(width_, height_));
  auto* buffer =
      new PixelBuffer(width_, height_, PixelBuffer::strideForWidth(width_), std::move(storage));
  std::weak_ptr<PixelBufferPool> pool = weak_from_this();
  return std::shared_ptr<PixelBuffer>(buffer, [pool](PixelBuffer* done) {
    if (auto owner = pool.lock()) owner->giveBack(done->takeStorage());
    delete done;
  });
}

size_t PixelBufferPool::idleCount() const {
  std::lock_guard lock(mutex_);
  return idle_.size();
}

void PixelBufferPool::giveBack(std::unique_ptr<std::vector<uint8_t>> storage) {
  if (!storage) return;
  std::lock_guard lock(mutex_);
  if (idle_.size() >= capacity_) return;
  idle_.push_back(std::move(storage));
}

}  // namespace oxelo
