#include "media/PixelBuffer.h"

#include <gtest/gtest.h>

#include <tuple>

namespace oxelo {
namespace {

TEST(PixelBufferTest, RowsAreAlignedAndHoldFourBytesAPixel) {
  auto buffer = PixelBuffer::create(321, 3);
  EXPECT_EQ(buffer->stride(), 1344u);  // 1284 rounded up to 64
  EXPECT_EQ(buffer->row(2) - buffer->data(), 2 * 1344);
  buffer->row(2)[320 * 4 + 3] = 0xff;  // the last byte of the last pixel is there
}

TEST(PixelBufferTest, YuvPlanesFollowOneAnotherWithPaddedRows) {
  // 321 x 3: luma rows of 321 bytes, chroma of 161 samples (NV12: 322 bytes
  // of pairs, I420: 161 bytes each), two chroma rows; all padded to 64.
  auto nv12 = PixelBuffer::createYuv(PixelFormat::nv12, 321, 3, YuvMatrix::bt601, true);
  ASSERT_EQ(nv12->planeCount(), 2);
  EXPECT_EQ(std::tuple(nv12->planeStride(0), nv12->planeStride(1)), std::tuple(384u, 384u));
  EXPECT_EQ(nv12->plane(1) - nv12->plane(0), 3 * 384);
  EXPECT_EQ(nv12->planeHeight(1), 2);
  nv12->plane(1)[384 + 321] = 0xff;  // the last Cr of the last chroma row is there
  EXPECT_TRUE(nv12->fullRange());
  EXPECT_EQ(nv12->matrix(), YuvMatrix::bt601);

  auto i420 = PixelBuffer::createYuv(PixelFormat::i420, 321, 3, YuvMatrix::bt709, false);
  ASSERT_EQ(i420->planeCount(), 3);
  EXPECT_EQ(std::tuple(i420->planeRowBytes(1), i420->planeStride(1)), std::tuple(161u, 192u));
  EXPECT_EQ(i420->plane(2) - i420->plane(1), 2 * 192);
  i420->plane(2)[192 + 160] = 0xff;
}

TEST(PixelBufferTest, AWrappedPictureKeepsItsOwnerAlive) {
  auto memory = std::make_shared<std::vector<uint8_t>>(8 * 2 + 8);
  std::weak_ptr<std::vector<uint8_t>> watch = memory;
  auto wrapped =
      PixelBuffer::wrapYuv(PixelFormat::nv12, 8, 2, YuvMatrix::bt709, false,
                           {memory->data(), memory->data() + 16, nullptr}, {8, 8, 0}, memory);
  memory.reset();
  EXPECT_FALSE(watch.expired());
  EXPECT_EQ(wrapped->plane(1) - wrapped->plane(0), 16);
  wrapped.reset();
  EXPECT_TRUE(watch.expired());
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
