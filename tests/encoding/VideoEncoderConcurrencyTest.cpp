// Pictures, rate changes and the life cycle on three threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "encoding/LFHardwareVideoEncoder.h"
#include "encoding/LibavVideoCodecSession.h"
#include "tests/encoding/EncodingTestSupport.h"
#include "tests/support/FakeLifecycle.h"

namespace oxelo {
namespace {

class LockedRecorder final : public LFVideoEncodingDelegate {
 public:
  void videoEncoderVideoFrame(LFVideoEncoding*, std::shared_ptr<LFVideoFrame> frame) override {
    std::lock_guard lock(mutex);
    frames.push_back(std::move(frame));
  }
  std::mutex mutex;
  std::vector<std::shared_ptr<LFVideoFrame>> frames;
};

TEST(VideoEncoderConcurrencyTest, PicturesRateChangesAndSessionReplacementsInterleave) {
  test::ManualMain main;
  test::ScopedDefaults defaults;
  auto lifecycle = std::make_shared<FakeLifecycle>();
  auto configuration = test::smallVideoConfiguration(64, 48, 30, 300000);
  auto recorder = std::make_shared<LockedRecorder>();
  auto encoder = LFHardwareVideoEncoder::create(
      configuration, LibavVideoCodecSession::factory({"libx264"}), lifecycle);
  encoder->setDelegate(recorder);

  // Pictures flow while the session is replaced ten times, then ten more alone.
  std::atomic<bool> replacing{true};
  std::atomic<bool> done{false};
  std::thread pictures([&] {
    int i = 0;
    while (replacing) {
      encoder->encodeVideoData(test::movingPicture(64, 48, i), 1000 + i);
      ++i;
    }
    for (int last = i + 10; i < last; ++i)
      encoder->encodeVideoData(test::movingPicture(64, 48, i), 1000 + i);
    done = true;
  });
  std::thread rates([&] {
    for (int64_t rate = 200000; !done; rate += 1000) {
      encoder->setVideoBitRate(rate);
      (void)encoder->videoBitRate();
      std::this_thread::yield();
    }
  });
  for (int replacement = 0; replacement < 10; ++replacement) {
    lifecycle->sendEvent(LifecycleEvent::willResignActive);
    lifecycle->sendEvent(LifecycleEvent::didBecomeActive);
    main.drain();
    encoder->stopEncoder();
    std::this_thread::yield();
  }
  replacing = false;
  pictures.join();
  rates.join();

  std::lock_guard lock(recorder->mutex);
  ASSERT_FALSE(recorder->frames.empty());
  EXPECT_TRUE(recorder->frames.front()->isKeyFrame);
  uint64_t last = 0;
  for (const auto& frame : recorder->frames) {
    EXPECT_GT(frame->timestamp, last) << "frames leave in order";
    last = frame->timestamp;
    EXPECT_TRUE(test::lengthPrefixedUnits(frame->data).has_value());
    EXPECT_TRUE(hasBytes(frame->sps));
  }
}

}  // namespace
}  // namespace oxelo
