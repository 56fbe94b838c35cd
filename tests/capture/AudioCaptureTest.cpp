#include "capture/LFAudioCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>

#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using namespace std::chrono_literals;

// What the test sees of its hand-fed input; deliver() plays the capture thread.
struct Probe {
  std::mutex mutex;
  std::condition_variable changed;
  AudioInput::BlockHandler handler;  // set while started
  int starts = 0, stops = 0;
  unsigned rate = 0, channels = 0;

  bool waitFor(const std::function<bool()>& condition) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, 5s, condition);
  }
  bool deliver(const std::vector<uint8_t>& block) {
    std::lock_guard lock(mutex);
    if (!handler) return false;
    handler(block.data(), block.size(), AudioTimeStamp{0, 0});
    return true;
  }
};

class FakeInput final : public AudioInput {
 public:
  explicit FakeInput(std::shared_ptr<Probe> probe) : probe_(std::move(probe)) {}
  bool start(BlockHandler handler) override {
    step(std::move(handler), probe_->starts);
    return true;
  }
  void stop() override { step(nullptr, probe_->stops); }
  bool isStarted() const override {
    std::lock_guard lock(probe_->mutex);
    return probe_->handler != nullptr;
  }

 private:
  // Nothing while already in the wanted state; a stop waits for a block in
  // progress.
  void step(BlockHandler handler, int& count) {
    std::lock_guard lock(probe_->mutex);
    if (!handler == !probe_->handler) return;
    probe_->handler = std::move(handler);
    ++count;
    probe_->changed.notify_all();
  }
  std::shared_ptr<Probe> probe_;
};

class BlockRecorder final : public LFAudioCaptureDelegate {
 public:
  void captureOutputAudioData(LFAudioCapture*, const std::vector<uint8_t>& audioData,
                              const AudioTimeStamp* timeStamp) override {
    EXPECT_NE(timeStamp, nullptr);
    blocks.push_back(audioData);
  }
  std::vector<std::vector<uint8_t>> blocks;  // touched on the test thread only
};

class AudioCaptureTest : public testing::Test {
 protected:
  AudioCaptureTest() {
    auto configuration = std::make_shared<LFLiveAudioConfiguration>();
    configuration->setNumberOfChannels(2);
    configuration->setAudioSampleRate(44100);
    auto backend =
        std::make_shared<AudioBackend>("fake", [probe = probe_](unsigned rate, unsigned channels) {
          probe->rate = rate;
          probe->channels = channels;
          return std::make_unique<FakeInput>(probe);
        });
    capture_ = LFAudioCapture::create(configuration, backend);
    capture_->setDelegate(recorder_);
  }
  void startAndWait() {
    capture_->setRunning(true);
    ASSERT_TRUE(probe_->waitFor([this] { return probe_->handler != nullptr; }));
  }
  using Bytes = std::vector<uint8_t>;

  std::shared_ptr<Probe> probe_ = std::make_shared<Probe>();
  std::shared_ptr<BlockRecorder> recorder_ = std::make_shared<BlockRecorder>();
  std::shared_ptr<LFAudioCapture> capture_;
};

TEST_F(AudioCaptureTest, DeliversEachBlockAtTheConfiguredFormatOrZerosWhileMuted) {
  EXPECT_EQ(probe_->rate, 44100u);
  EXPECT_EQ(probe_->channels, 2u);
  EXPECT_FALSE(capture_->isRunning());
  startAndWait();
  EXPECT_TRUE(capture_->isRunning());
  ASSERT_TRUE(probe_->deliver({1, 2, 3, 4, 5, 6, 7, 8}));
  capture_->setMuted(true);
  ASSERT_TRUE(probe_->deliver(Bytes(1234, 0x5a)));
  capture_->setMuted(false);
  ASSERT_TRUE(probe_->deliver(Bytes(2, 0x11)));
  EXPECT_EQ(recorder_->blocks,
            (std::vector<Bytes>{{1, 2, 3, 4, 5, 6, 7, 8}, Bytes(1234, 0), {0x11, 0x11}}));
  recorder_.reset();  // a delegate that is gone gets nothing
  EXPECT_TRUE(probe_->deliver(Bytes(8, 1)));
}

// Asking for what is already so does nothing.
TEST_F(AudioCaptureTest, StopTakesEffectWithTheNextBlockWhichIsNotDelivered) {
  capture_->setRunning(false);
  startAndWait();
  capture_->setRunning(true);
  capture_->setRunning(false);
  EXPECT_FALSE(capture_->isRunning()) << "the gate closes at once";
  EXPECT_EQ(probe_->stops, 0) << "the input is stopped by the capture thread's next block";
  ASSERT_TRUE(probe_->deliver(Bytes(8, 1)));
  EXPECT_TRUE(recorder_->blocks.empty());
  ASSERT_TRUE(probe_->waitFor([this] { return probe_->stops == 1; }));

  // And it runs again afterwards, until the capture goes.
  startAndWait();
  ASSERT_TRUE(probe_->deliver(Bytes(8, 2)));
  EXPECT_EQ(recorder_->blocks.size(), 1u);
  capture_.reset();  // waits for taskQueue: a needless start would have run by now
  EXPECT_EQ(probe_->starts, 2);
  EXPECT_EQ(probe_->stops, 2);
}

}  // namespace
}  // namespace oxelo
