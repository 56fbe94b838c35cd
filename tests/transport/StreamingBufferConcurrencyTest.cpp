#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/TestSupport.h"
#include "transport/LFStreamingBuffer.h"

namespace oxelo {
namespace {

// Encoder threads append while the send queue pops: every frame comes out
// once, each producer's frames in its own order.
TEST(StreamingBufferConcurrencyTest, AppendersAndPopperKeepEachProducersOrder) {
  test::ManualMain main;
  auto buffer = LFStreamingBuffer::create();
  constexpr int kProducers = 3, kPerProducer = 3000;
  std::atomic<int> producersDone{0};
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kPerProducer; ++i) {
        auto f = std::make_shared<LFVideoFrame>();
        f->timestamp = uint64_t(p) << 32 | uint64_t(i);
        buffer->appendObject(f);
      }
      producersDone.fetch_add(1);
    });
  }
  std::vector<int64_t> last(kProducers, -1);
  size_t popped = 0;
  bool inOrder = true;
  while (producersDone.load() < kProducers || buffer->listCount() > 0) {
    auto f = buffer->popFirstObject();
    if (!f) continue;
    ++popped;
    int p = int(f->timestamp >> 32);
    int64_t i = int64_t(f->timestamp & 0xFFFFFFFF);
    if (i <= last[p]) inOrder = false;
    last[p] = i;
  }
  for (auto& t : producers) t.join();
  EXPECT_TRUE(inOrder);
  EXPECT_EQ(popped, size_t(kProducers * kPerProducer));
  EXPECT_EQ(buffer->popFirstObject(), nullptr);
  main.advance(1.0, 1.0);  // the sampler started by the first append runs on
  EXPECT_GE(main.main().nextDeadline(), 0.0);
}

}  // namespace
}  // namespace oxelo
