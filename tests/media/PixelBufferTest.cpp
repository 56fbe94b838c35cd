#include "media/PixelBuffer.h"

#include <gtest/gtest.h>

namespace oxelo {
namespace {

TEST(PixelBufferTest, RowsAreAlignedAndHoldFourBytesAPixel) {
  auto buffer = PixelBuffer::create(321, 3);
  EXPECT_EQ(buffer->stride(), 1344u);  // 1284 rounded up to 64
  EXPECT_EQ(buffer->row(2) - buffer->data(), 2 * 1344);
  buffer->row(2)[320 * 4 + 3] = 0xff;  // the last byte of the last pixel is there
}

TEST(PixelBufferPoolTest, MemoryReturnsWhenTheLastHolderLetsGo) {
  auto pool = PixelBufferPool::create(64, 32, /*capacity=*/2);
  auto a = pool->makeBuffer();
  const uint8_t* memory = a->data();
  auto shared = a;
  a.reset();
  EXPECT_EQ(pool->idleCount(), 0u) << "still held";
  shared.reset();
  EXPECT_EQ(pool->idleCount(), 1u);
  auto b = pool->makeBuffer();
  EXPECT_EQ(b->data(), memory) << "reused";
  EXPECT_EQ(b->width(), 64);
  EXPECT_EQ(b->height(), 32);
}

TEST(PixelBufferPoolTest, KeepsAtMostItsCapacityAndOutlivesNothing) {
  auto pool = PixelBufferPool::create(16, 16, /*capacity=*/1);
  auto a = pool->makeBuffer();
  auto b = pool->makeBuffer();
  a.reset();
  b.reset();
  EXPECT_EQ(pool->idleCount(), 1u);
  auto c = pool->makeBuffer();
  pool.reset();
  c->row(15)[63] = 1;  // a buffer may outlive its pool
  c.reset();
}

}  // namespace
}  // namespace oxelo
