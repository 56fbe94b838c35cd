#include "transport/LFStreamingBuffer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

TEST(BufferVerdictTest, JudgesTheTrendOfACycle) {
  const auto kLower = BufferVerdict::LowerBitrate, kSame = BufferVerdict::NoChange;
  const std::tuple<const char*, std::vector<int64_t>, int64_t, BufferVerdict> cases[] = {
      {"NoSamples", {}, 5, kSame},
      {"SteadyLength", {3, 3, 3, 3, 3}, 5, kSame},
      {"FiveRisesFirstAgainstZero", {1, 2, 3, 4, 5}, 5, kLower},
      {"FirstSampleZeroLeavesFourRises", {0, 1, 2, 3, 4}, 5, kSame},
      {"APlateauBreaksTheRun", {1, 2, 2, 3, 4}, 5, kSame},
      {"RisesNeedNotBeInARow", {1, 2, 1, 2, 3, 4, 5}, 5, kLower},
      {"FiveSamplesCannotFallFiveTimes", {5, 4, 3, 2, 1}, 5, kSame},
      {"SixSamplesFallFiveTimes", {9, 8, 7, 6, 5, 4}, 5, BufferVerdict::RaiseBitrate},
      {"RisesWinOverFalls", {1, 2, 1, 0}, 2, kLower}};
  for (const auto& [name, samples, threshold, verdict] : cases)
    EXPECT_EQ(LFStreamingBuffer::currentBufferState(samples, threshold), verdict) << name;
}

std::shared_ptr<LFFrame> videoFrame(uint64_t timestamp) {
  auto f = std::make_shared<LFVideoFrame>();
  f->timestamp = timestamp;
  return f;
}

struct RecordingDelegate : LFStreamingBufferDelegate {
  void streamingBufferBufferState(LFStreamingBuffer*, BufferVerdict v) override {
    got.push_back(v);
  }
  std::vector<BufferVerdict> got;
};

class StreamingBufferTest : public testing::Test {
 protected:
  void SetUp() override { buffer_->setDelegate(delegate_); }
  // Appends `n` frames, then lets one sampling second pass. Time moves in
  // whole seconds so that every sample falls due exactly.
  void growThenWait(int n) {
    for (int i = 0; i < n; ++i) buffer_->appendObject(videoFrame(next_++));
    main_.advance(1.0, 1.0);
  }
  bool timerPending() { return main_.main().nextDeadline() >= 0; }

  test::ManualMain main_;
  std::shared_ptr<LFStreamingBuffer> buffer_ = LFStreamingBuffer::create();
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  uint64_t next_ = 1;
};

// Remove-all empties the list; sampling goes on.
TEST_F(StreamingBufferTest, TakesEveryFrameWithoutBoundPopsInOrderAndEmpties) {
  EXPECT_EQ(buffer_->popFirstObject(), nullptr);
  auto audio = std::make_shared<LFAudioFrame>();
  buffer_->appendObject(audio);
  for (uint64_t i = 0; i < 5000; ++i) buffer_->appendObject(videoFrame(i));
  ASSERT_EQ(buffer_->listCount(), 5001u);
  EXPECT_EQ(buffer_->popFirstObject(), audio);
  for (uint64_t i = 0; i < 4000; ++i) ASSERT_EQ(buffer_->popFirstObject()->timestamp, i);
  buffer_->removeAllObject();
  EXPECT_EQ(buffer_->listCount(), 0u);
  EXPECT_EQ(buffer_->popFirstObject(), nullptr);
  main_.advance(1.0, 1.0);
  EXPECT_TRUE(timerPending());
}

struct CycleCase {
  const char* name;
  std::vector<int> growth;  // frames appended before each sampling second
  size_t verdicts;
};

class SamplingCycleTest : public StreamingBufferTest,
                          public testing::WithParamInterface<CycleCase> {};

// Samples come each second, the first inside the first append; five make a
// cycle, whose first sample counts as a rise against 0.
TEST_P(SamplingCycleTest, ACycleThatGrowsAtEveryStepLowersTheBitrate) {
  for (int n : GetParam().growth) growThenWait(n);
  EXPECT_EQ(delegate_->got, std::vector(GetParam().verdicts, BufferVerdict::LowerBitrate));
}

INSTANTIATE_TEST_SUITE_P(
    Cycles, SamplingCycleTest,
    testing::Values(CycleCase{"FirstCycleHasFourRisesOnly", {1, 1, 1, 1, 1, 1, 1, 1}, 0},
                    CycleCase{"SecondCycleRisesFiveTimes", {1, 1, 1, 1, 1, 1, 1, 1, 1}, 1},
                    CycleCase{
                        "NextCycleStartsFromZero", {1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1, 1}, 2},
                    CycleCase{"RisesOfAnEarlierCycleDoNotCount", {1, 1, 1, 1, 1, 0, 0, 0, 0}, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(StreamingBufferTest, WithTheDelegateGoneTheEvaluationReportsNothing) {
  std::weak_ptr<RecordingDelegate> weak = delegate_;
  delegate_.reset();
  EXPECT_TRUE(weak.expired()) << "the buffer holds its delegate weakly";
  for (int i = 0; i < 10; ++i) growThenWait(1);
  EXPECT_TRUE(timerPending());
}

// A missing frame adds nothing and starts no timer; the first frame starts
// it, and it ends with the buffer.
TEST_F(StreamingBufferTest, TimerRunsFromTheFirstFrameUntilTheBufferGoes) {
  buffer_->appendObject(nullptr);
  EXPECT_EQ(buffer_->listCount(), 0u);
  EXPECT_FALSE(timerPending());
  buffer_->appendObject(videoFrame(1));
  EXPECT_TRUE(timerPending());
  buffer_.reset();
  main_.advance(1.0, 1.0);  // the pending tick finds no buffer and schedules nothing
  EXPECT_FALSE(timerPending());
}

}  // namespace
}  // namespace oxelo
