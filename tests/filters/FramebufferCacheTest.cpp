// The framebuffer cache and counts, and the timing of the multi-input filters.
#include <gtest/gtest.h>

#include "filters/GPUImageFramebufferCache.h"
#include "filters/GPUImageTwoInputFilter.h"
#include "tests/filters/FilterTestSupport.h"

namespace oxelo {
namespace {

GPUImageFramebufferCache& cache() { return GPUImageContext::sharedFramebufferCache(); }

// Reads the cache on its queue, after every return posted so far.
int idleCount(const std::string& key) {
  int count = 0;
  runSynchronouslyOnVideoProcessingQueue([&] { count = cache().framebufferTypeCount(key); });
  return count;
}
std::shared_ptr<GPUImageFramebuffer> idleAt(const std::string& key, int slot) {
  std::shared_ptr<GPUImageFramebuffer> found;
  runSynchronouslyOnVideoProcessingQueue([&] { found = cache().idleFramebuffer(key, slot); });
  return found;
}
void onQueue(const std::function<void()>& task) { runSynchronouslyOnVideoProcessingQueue(task); }

TEST(FramebufferCacheTest, KeyTexts) {
  GPUTextureOptions options;
  EXPECT_EQ(GPUImageFramebufferCache::hashForSize({1280, 720}, options, false),
            "1280.0x720.0-9729:9729:33071:33071:6408:32993:5121");
  options.minFilter = 0x2600;  // GL_NEAREST
  EXPECT_EQ(GPUImageFramebufferCache::hashForSize({799.96, 600}, options, true),
            "800.0x600.0-9728:9729:33071:33071:6408:32993:5121-NOFB");
}

class FramebufferCacheEdgeTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
    cache().purgeAllUnassignedFramebuffers();
  }
  const GPUSize size_{37, 11};  // used by no other test
  const std::string key_ = GPUImageFramebufferCache::hashForSize(size_, {}, false);
  std::shared_ptr<GPUImageFramebuffer> fetch() {
    return cache().fetchFramebufferForSize(size_, false);
  }
  static void giveBack(const std::shared_ptr<GPUImageFramebuffer>& fb) {
    onQueue([&] { fb->unlock(); });
  }
};

TEST_F(FramebufferCacheEdgeTest, ReturnsStackPerKeyAndAPurgeDropsOnlyTheIdle) {
  auto first = fetch(), second = fetch();  // a size only in use: new objects
  EXPECT_NE(first, second);
  EXPECT_EQ(first->referenceCount(), 1u);
  giveBack(first);
  giveBack(second);
  EXPECT_EQ(idleCount(key_), 2);
  EXPECT_EQ(idleAt(key_, 0), first);
  EXPECT_EQ(idleAt(key_, 1), second);
  EXPECT_EQ(fetch(), second);  // the last one returned comes out first
  EXPECT_EQ(idleCount(key_), 1);
  cache().purgeAllUnassignedFramebuffers();
  EXPECT_EQ(idleCount(key_), 0);
  giveBack(second);  // in use during the purge: back at slot 0
  EXPECT_EQ(idleCount(key_), 1);
  EXPECT_EQ(idleAt(key_, 0), second);
  EXPECT_EQ(fetch(), second);
}

// Takes a lock on each frame handed to it and keeps it until told.
struct HoldingTarget : GPUImageInput {
  std::shared_ptr<GPUImageFramebuffer> held;
  int framesSeen = 0;
  void newFrameReadyAtTime(double, int) override { ++framesSeen; }
  void setInputFramebuffer(std::shared_ptr<GPUImageFramebuffer> fb, int) override {
    if ((held = std::move(fb))) held->lock();
  }
  int nextAvailableTextureIndex() const override { return 0; }
  void setInputSize(GPUSize, int) override {}
  void setInputRotation(uint64_t, int) override {}
  GPUSize maximumOutputSize() const override { return {}; }
  void endProcessing() override {}
};

TEST_F(FramebufferCacheEdgeTest, TwoTargetsGiveAFramebufferBackOnlyAfterTheSecondUnlock) {
  auto filter = std::make_shared<GPUImageFilter>();
  filter->forceProcessingAtSize(size_);
  auto a = std::make_shared<HoldingTarget>(), b = std::make_shared<HoldingTarget>();
  filter->addTarget(a);
  filter->addTarget(b);
  filter->addTarget(a);  // a target added twice stays one target
  EXPECT_EQ(filter->targets().size(), 2u);
  bool completionSawFrame = false;
  filter->setFrameProcessingCompletionBlock([&](GPUImageOutput* output, double) {
    completionSawFrame = output->framebufferForOutput() != nullptr && a->framesSeen == 0;
  });
  auto input = std::make_shared<GPUImagePixelBufferInput>();
  input->addTarget(filter);
  input->processPixelBuffer(*test::patternPicture(8, 8), 1.0);
  EXPECT_TRUE(completionSawFrame);
  ASSERT_TRUE(a->held);
  ASSERT_EQ(a->held, b->held);
  EXPECT_EQ(std::pair(a->framesSeen, b->framesSeen), std::pair(1, 1));
  auto framebuffer = a->held;
  EXPECT_EQ(framebuffer->referenceCount(), 2u);  // the node's own count is already given up
  giveBack(a->held);
  EXPECT_EQ(idleCount(key_), 0);
  giveBack(b->held);
  EXPECT_EQ(idleCount(key_), 1);
  EXPECT_EQ(idleAt(key_, 0), framebuffer);
}

// Writes the red of input 0, the green of input 1 and the blue of input 2.
const char* const kPickShader = R"(
varying highp vec2 textureCoordinate, textureCoordinate2, textureCoordinate3;
uniform sampler2D inputImageTexture, inputImageTexture2, inputImageTexture3;
void main() {
  gl_FragColor = vec4(texture2D(inputImageTexture, textureCoordinate).r,
                      texture2D(inputImageTexture2, textureCoordinate2).g,
                      texture2D(inputImageTexture3, textureCoordinate3).b, 1.0);
}
)";

std::shared_ptr<GPUImageFramebuffer> solidFramebuffer(uint8_t value) {
  auto picture = PixelBuffer::create(4, 4);
  std::memset(picture->data(), value, picture->stride() * 4);
  auto framebuffer = cache().fetchFramebufferForSize({4, 4}, true);
  onQueue([&] { framebuffer->uploadPixels(*picture); });
  return framebuffer;
}

TEST(ThreeInputFilterTest, DrawsOnceAllThreeArrivedWithTheNewerFrameOfARepeatedInput) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  auto filter = std::make_shared<GPUImageThreeInputFilter>(kPickShader);
  ASSERT_NE(filter->filterProgram(), nullptr);
  filter->forceProcessingAtSize({4, 4});
  std::vector<std::pair<double, test::Bgra>> draws;  // the time and a pixel of each
  filter->setFrameProcessingCompletionBlock([&](GPUImageOutput* output, double time) {
    draws.emplace_back(time, test::pixelAt(*output->framebufferForOutput()->pixelBuffer(), 1, 1));
  });
  auto older = solidFramebuffer(10), newer = solidFramebuffer(200);
  auto second = solidFramebuffer(60), third = solidFramebuffer(90);
  auto arrive = [&](std::shared_ptr<GPUImageFramebuffer> framebuffer, int index, double time) {
    filter->setInputFramebuffer(std::move(framebuffer), index);
    filter->newFrameReadyAtTime(time, index);
  };
  onQueue([&] {
    EXPECT_EQ(filter->nextAvailableTextureIndex(), 0);
    arrive(older, 0, 1.0);
    arrive(newer, 0, 2.0);
    arrive(second, 1, 2.0);
    EXPECT_EQ(filter->nextAvailableTextureIndex(), 2);
    EXPECT_TRUE(draws.empty());
    arrive(third, 2, 3.0);
  });
  // One draw, at the arrival that completed the set.
  EXPECT_EQ(draws, (std::vector<std::pair<double, test::Bgra>>{{3.0, {90, 60, 200, 255}}}));
  // Every input gave its count back, the replaced one included.
  for (auto* framebuffer : {&older, &newer, &second, &third})
    EXPECT_EQ((*framebuffer)->referenceCount(), 1u);  // the fetch's own count here
}

TEST(TwoInputFilterTest, AMovingInputOppositeAStillPictureDrawsAtOnce) {
  ASSERT_NO_FATAL_FAILURE(test::expectGlContext());
  auto filter = std::make_shared<GPUImageTwoInputFilter>(R"(
varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture;
void main() { gl_FragColor = texture2D(inputImageTexture, textureCoordinate); })");
  filter->forceProcessingAtSize({4, 4});
  std::vector<double> times;
  filter->setFrameProcessingCompletionBlock([&](GPUImageOutput*, double t) { times.push_back(t); });
  onQueue([&] {
    filter->newFrameReadyAtTime(kIndefiniteTime, 1);  // the still
    filter->newFrameReadyAtTime(5.0, 0);              // both marked: draws
    filter->newFrameReadyAtTime(6.0, 0);              // opposite the still: draws alone
  });
  EXPECT_EQ(times, (std::vector<double>{5.0, 6.0}));
}

}  // namespace
}  // namespace oxelo
