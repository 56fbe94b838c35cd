#include "media/PixelBuffer.h"

namespace oxelo {

namespace {

size_t byteCount(int width, int height) {
  return PixelBuffer::strideForWidth(width) * static_cast<size_t>(height > 0 ? height : 0);
}

size_t aligned(size_t bytes) {
  return (bytes + PixelBuffer::kRowAlignment - 1) / PixelBuffer::kRowAlignment *
         PixelBuffer::kRowAlignment;
}

}  // namespace

size_t PixelBuffer::strideForWidth(int width) {
  return aligned(static_cast<size_t>(width > 0 ? width : 0) * 4);
}

int PixelBuffer::planeCount(PixelFormat format) {
  switch (format) {
    case PixelFormat::bgra:
      return 1;
    case PixelFormat::nv12:
      return 2;
    case PixelFormat::i420:
      return 3;
  }
  return 1;
}

size_t PixelBuffer::planeRowBytes(int index) const {
  const auto w = static_cast<size_t>(width_);
  if (format_ == PixelFormat::bgra) return w * 4;
  if (index == 0) return w;
  return format_ == PixelFormat::nv12 ? (w + 1) / 2 * 2 : (w + 1) / 2;
}

PixelBuffer::PixelBuffer(int width, int height, size_t stride,
                         std::unique_ptr<std::vector<uint8_t>> storage)
    : width_(width), height_(height), storage_(std::move(storage)) {
  planes_[0] = storage_->data();
  strides_[0] = stride;
}

std::shared_ptr<PixelBuffer> PixelBuffer::yuvHeader(PixelFormat format, int width, int height,
                                                    YuvMatrix matrix, bool fullRange) {
  std::shared_ptr<PixelBuffer> buffer(new PixelBuffer());
  buffer->format_ = format;
  buffer->width_ = width;
  buffer->height_ = height;
  buffer->matrix_ = matrix;
  buffer->fullRange_ = fullRange;
  return buffer;
}

std::shared_ptr<PixelBuffer> PixelBuffer::createYuv(PixelFormat format, int width, int height,
                                                    YuvMatrix matrix, bool fullRange) {
  auto buffer = yuvHeader(format, width, height, matrix, fullRange);
  size_t offsets[kMaxPlanes] = {};
  size_t total = 0;
  for (int i = 0; i < planeCount(format); ++i) {
    const auto index = static_cast<size_t>(i);
    buffer->strides_[index] = aligned(buffer->planeRowBytes(i));
    offsets[index] = total;
    total += buffer->strides_[index] * static_cast<size_t>(buffer->planeHeight(i));
  }
  buffer->storage_ = std::make_unique<std::vector<uint8_t>>(total);
  for (int i = 0; i < planeCount(format); ++i)
    buffer->planes_[static_cast<size_t>(i)] = buffer->storage_->data() + offsets[i];
  return buffer;
}

std::shared_ptr<PixelBuffer> PixelBuffer::wrapYuv(PixelFormat format, int width, int height,
                                                  YuvMatrix matrix, bool fullRange,
                                                  std::array<const uint8_t*, kMaxPlanes> planes,
                                                  std::array<size_t, kMaxPlanes> strides,
                                                  std::shared_ptr<const void> owner) {
  auto buffer = yuvHeader(format, width, height, matrix, fullRange);
  for (size_t i = 0; i < kMaxPlanes; ++i) {
    // Never written through: see the class comment.
    buffer->planes_[i] = const_cast<uint8_t*>(planes[i]);
    buffer->strides_[i] = strides[i];
  }
  buffer->owner_ = std::move(owner);
  return buffer;
}

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
