#include "capture/LFAudioCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <thread>

#include "tests/support/TestSupport.h"

namespace oxelo {
namespace {

using namespace std::chrono_literals;

// An input the test feeds by hand: deliver() plays the capture thread.
class FakeInput final : public AudioInput {
 public:
  struct Probe {
    std::mutex mutex;
    std::condition_variable changed;
    BlockHandler handler;  // set while started
    int starts = 0;
    int stops = 0;
    unsigned rate = 0;
    unsigned channels = 0;

    bool waitFor(const std::function<bool()>& condition) {
      std::unique_lock lock(mutex);
      return changed.wait_for(lock, 5s, condition);
    }
    // Hands one block to the capture, as the capture thread would.
    bool deliver(const std::vector<uint8_t>& block) {
      std::lock_guard lock(mutex);
      if (!handler) return false;
      handler(block.data(), block.size(), AudioTimeStamp{0, 0});
      return true;
    }
  };

  explicit FakeInput(std::shared_ptr<Probe> probe) : probe_(std::move(probe)) {}
  bool start(BlockHandler handler) override {
    std::lock_guard lock(probe_->mutex);
    if (probe_->handler) return true;
    probe_->handler = std::move(handler);
    ++probe_->starts;
    probe_->changed.notify_all();
    return true;
  }
  void stop() override {
    std::lock_guard lock(probe_->mutex);  // waits for a block in progress
    if (!probe_->handler) return;
    probe_->handler = nullptr;
    ++probe_->stops;
    probe_->changed.notify_all();
  }
  bool isStarted() const override {
    std::lock_guard lock(probe_->mutex);
    return probe_->handler != nullptr;
  }

 private:
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
    configuration_->setNumberOfChannels(2);
    configuration_->setAudioSampleRate(44100);
    backend_ =
        std::make_shared<AudioBackend>("fake", [probe = probe_](unsigned rate, unsigned channels) {
          probe->rate = rate;
          probe->channels = channels;
          return std::make_unique<FakeInput>(probe);
        });
    capture_ = LFAudioCapture::create(configuration_, backend_);
    capture_->setDelegate(recorder_);
  }
  void startAndWait() {
    capture_->setRunning(true);
    ASSERT_TRUE(probe_->waitFor([this] { return probe_->handler != nullptr; }));
  }

  test::LogCapture log_;
  std::shared_ptr<FakeInput::Probe> probe_ = std::make_shared<FakeInput::Probe>();
  std::shared_ptr<LFLiveAudioConfiguration> configuration_ =
      std::make_shared<LFLiveAudioConfiguration>();
  std::shared_ptr<AudioBackend> backend_;
  std::shared_ptr<BlockRecorder> recorder_ = std::make_shared<BlockRecorder>();
  std::shared_ptr<LFAudioCapture> capture_;
};

TEST_F(AudioCaptureTest, OpensTheInputAtTheConfiguredFormatAndStartsOnRequest) {
  EXPECT_EQ(probe_->rate, 44100u);
  EXPECT_EQ(probe_->channels, 2u);
  EXPECT_FALSE(capture_->isRunning());
  startAndWait();
  EXPECT_TRUE(capture_->isRunning());
  EXPECT_TRUE(log_.contains("MicrophoneSource: startRunning"));
  const std::vector<uint8_t> block{1, 2, 3, 4, 5, 6, 7, 8};
  ASSERT_TRUE(probe_->deliver(block));
  ASSERT_EQ(recorder_->blocks.size(), 1u);
  EXPECT_EQ(recorder_->blocks[0], block);
}

TEST_F(AudioCaptureTest, MutedBlocksAreZerosOfFullLength) {
  startAndWait();
  capture_->setMuted(true);
  ASSERT_TRUE(probe_->deliver(std::vector<uint8_t>(1234, 0x5a)));
  ASSERT_TRUE(probe_->deliver(std::vector<uint8_t>(4, 0x7f)));
  capture_->setMuted(false);
  ASSERT_TRUE(probe_->deliver(std::vector<uint8_t>(2, 0x11)));
  ASSERT_EQ(recorder_->blocks.size(), 3u);
  EXPECT_EQ(recorder_->blocks[0], std::vector<uint8_t>(1234, 0));
  EXPECT_EQ(recorder_->blocks[1], std::vector<uint8_t>(4, 0));
  EXPECT_EQ(recorder_->blocks[2], std::vector<uint8_t>(2, 0x11));
}

TEST_F(AudioCaptureTest, StopTakesEffectWithTheNextBlockWhichIsNotDelivered) {
  startAndWait();
  capture_->setRunning(false);
  EXPECT_FALSE(capture_->isRunning()) << "the gate closes at once";
  EXPECT_EQ(probe_->stops, 0) << "the input is stopped by the capture thread's next block";
  ASSERT_TRUE(probe_->deliver(std::vector<uint8_t>(8, 1)));
  EXPECT_TRUE(recorder_->blocks.empty());
  ASSERT_TRUE(probe_->waitFor([this] { return probe_->stops == 1; }));
  // The line follows the stop on taskQueue, a moment later.
  for (int i = 0; i < 500 && !log_.contains("MicrophoneSource: stopRunning"); ++i)
    std::this_thread::sleep_for(10ms);
  EXPECT_TRUE(log_.contains("MicrophoneSource: stopRunning"));

  // And it runs again afterwards.
  startAndWait();
  EXPECT_EQ(probe_->starts, 2);
  ASSERT_TRUE(probe_->deliver(std::vector<uint8_t>(8, 2)));
  EXPECT_EQ(recorder_->blocks.size(), 1u);
}

TEST_F(AudioCaptureTest, SameRunningValueDoesNothing) {
  capture_->setRunning(false);
  startAndWait();
  capture_->setRunning(true);
  capture_.reset();  // waits for taskQueue: a second start would have run by now
  EXPECT_EQ(probe_->starts, 1);
  EXPECT_EQ(probe_->stops, 1) << "destruction stops the input";
  EXPECT_EQ(log_.count("MicrophoneSource: startRunning"), 1u);
}

TEST_F(AudioCaptureTest, AGoneDelegateGetsNothing) {
  startAndWait();
  recorder_.reset();
  EXPECT_TRUE(probe_->deliver(std::vector<uint8_t>(8, 1)));
}

TEST(AudioCaptureNoneTest, NoneBackendGivesNoInputAndNoBlocks) {
  auto configuration = std::make_shared<LFLiveAudioConfiguration>();
  configuration->setNumberOfChannels(1);
  configuration->setAudioSampleRate(48000);
  std::string error;
  auto capture = LFAudioCapture::create(configuration, AudioBackend::open("none", error));
  EXPECT_FALSE(capture->hasInput());
  capture->setRunning(true);
  capture->setRunning(false);
}

}  // namespace
}  // namespace oxelo
