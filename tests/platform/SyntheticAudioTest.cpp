#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <numbers>
#include <set>

#include "platform/audio/SyntheticAudioInput.h"
#include "platform/audio/SyntheticTone.h"

namespace oxelo {
namespace {

int16_t sampleOf(const std::vector<uint8_t>& bytes, size_t index) {
  return static_cast<int16_t>(bytes[2 * index] | (bytes[2 * index + 1] << 8));
}

struct ToneCase {
  const char* name;
  unsigned rate, channels;
};
class SyntheticToneTest : public testing::TestWithParam<ToneCase> {};

// After any moment t the blocks hold every frame due by t, and no block ends after t.
TEST_P(SyntheticToneTest, IrregularBlocksAddUpToTheElapsedSamples) {
  const auto& c = GetParam();
  SyntheticTone tone(c.rate, c.channels);
  std::set<size_t> sizes;
  uint64_t frames = 0;
  double t = 0;
  for (int step = 0; step < 400; ++step) {
    t += 0.003 + 0.011 * (step % 5);  // 3 to 47 ms apart
    for (const auto& block : tone.blocksDueAt(t)) {
      ASSERT_EQ(block.size() % (2 * c.channels), 0u);
      const size_t blockFrames = block.size() / (2 * c.channels);
      EXPECT_GE(blockFrames, SyntheticTone::kMinBlockFrames);
      EXPECT_LE(blockFrames, SyntheticTone::kMaxBlockFrames);
      sizes.insert(blockFrames);
      frames += blockFrames;
    }
    const auto due = static_cast<uint64_t>(t * c.rate);
    ASSERT_LE(frames, due) << "at " << t;
    ASSERT_GT(frames + SyntheticTone::kMaxBlockFrames, due) << "at " << t;
  }
  EXPECT_EQ(frames, tone.framesMade());
  EXPECT_GT(sizes.size(), 10u) << "block sizes vary";
}

// Blocks joined give one sine, 440 Hz on the left and 660 Hz on the right.
TEST_P(SyntheticToneTest, ToneIsContinuousAcrossBlocks) {
  const auto& c = GetParam();
  SyntheticTone tone(c.rate, c.channels);
  std::vector<uint8_t> joined;
  while (joined.size() < size_t{c.rate} * c.channels * 2 / 4) {  // a quarter second
    auto block = tone.nextBlock();
    joined.insert(joined.end(), block.begin(), block.end());
  }
  const size_t frames = joined.size() / (2 * c.channels);
  for (size_t i = 0; i < frames; i += 7) {
    for (unsigned ch = 0; ch < c.channels; ++ch) {
      const double frequency = ch == 0 ? 440.0 : 660.0;
      const double expected = 8192.0 * std::sin(2 * std::numbers::pi * frequency * i / c.rate);
      ASSERT_NEAR(sampleOf(joined, i * c.channels + ch), expected, 1.0) << "frame " << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, SyntheticToneTest,
                         testing::Values(ToneCase("Mono48k", 48000, 1),
                                         ToneCase("Stereo44k1", 44100, 2)),
                         [](const auto& info) { return std::string(info.param.name); });

// Blocks in order on a thread of its own until stopped; started again, it goes on from there.
TEST(SyntheticAudioInputTest, DeliversInRealTimeAndResumesWhereItStopped) {
  SyntheticAudioInput input(16000, 2);
  std::mutex mutex;
  std::condition_variable enough;
  uint64_t frames = 0;
  bool inOrder = true;
  auto handler = [&](const uint8_t*, size_t size, const AudioTimeStamp& time) {
    std::lock_guard lock(mutex);
    inOrder = inOrder && time.sampleTime == frames;
    frames += size / 4;
    enough.notify_all();
  };
  auto runUntil = [&](uint64_t target) {
    ASSERT_TRUE(input.start(handler));
    EXPECT_TRUE(input.isStarted());
    std::unique_lock lock(mutex);
    ASSERT_TRUE(enough.wait_for(lock, std::chrono::seconds(5), [&] { return frames >= target; }));
    lock.unlock();
    input.stop();
    EXPECT_FALSE(input.isStarted());
  };
  runUntil(1600);  // a tenth of a second
  runUntil(3200);
  std::lock_guard lock(mutex);
  EXPECT_TRUE(inOrder) << "sample times run on without gap or overlap";
}

}  // namespace
}  // namespace oxelo
